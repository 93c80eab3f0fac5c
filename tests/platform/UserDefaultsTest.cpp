#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "support/TempDir.h"
#include "velk/platform/UserDefaults.h"

namespace velk::platform {
namespace {

using velk::testing::TempDir;

std::shared_ptr<UserDefaults> openOrFail(const std::filesystem::path& path) {
  auto opened = UserDefaults::open(path);
  if (!opened.isSuccess()) {
    ADD_FAILURE() << opened.error();
    return UserDefaults::inMemory();
  }
  return std::move(opened).value();
}

std::string contents(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

Date at(double seconds) {
  return Date::fromReferenceSeconds(seconds);
}

TEST(UserDefaultsTest, ValuesKeepTheirTypeAndReplaceEachOtherInEitherKindOfStore) {
  TempDir folder;
  for (const auto& defaults :
       {openOrFail(folder.file("nested/folders/defaults.sqlite")), UserDefaults::inMemory()}) {
    EXPECT_EQ(defaults->date("when"), std::nullopt);
    EXPECT_FALSE(defaults->contains("when"));
    defaults->setDate("when", at(731'741'400.125));
    EXPECT_EQ(defaults->date("when"), at(731'741'400.125));
    EXPECT_EQ(defaults->string("when"), std::nullopt);
    // A string under the key replaces the date, and the key no longer reads as a date.
    defaults->setString("when", "2024-03-10");
    EXPECT_EQ(defaults->date("when"), std::nullopt);
    EXPECT_EQ(defaults->string("when"), "2024-03-10");
    EXPECT_TRUE(defaults->contains("when"));
    defaults->setDate("when", at(-5.5));
    EXPECT_EQ(defaults->date("when"), at(-5.5));
    defaults->setString("other", std::string("with\0zero", 9));
    defaults->remove("when");
    EXPECT_EQ(defaults->date("when"), std::nullopt);
    EXPECT_FALSE(defaults->contains("when"));
    EXPECT_EQ(defaults->string("other"), std::string("with\0zero", 9));
  }
  // In-memory stores are shared by holder only.
  auto shared = UserDefaults::inMemory();
  shared->setDate("k", at(3));
  EXPECT_EQ(UserDefaults::inMemory()->date("k"), std::nullopt);
}

TEST(UserDefaultsTest, InstancesAndProcessesOverOnePathShareValuesThatOutliveThem) {
  TempDir folder;
  const auto path = folder.file("defaults.sqlite");
  auto first = openOrFail(path);
  auto second = openOrFail(path);
  first->setDate("k", at(10));
  EXPECT_EQ(second->date("k"), at(10));
  second->setDate("k", at(20));
  EXPECT_EQ(first->date("k"), at(20));
  first.reset();
  second.reset();
  auto parent = openOrFail(path);
  EXPECT_EQ(parent->date("k"), at(20));
  parent->setDate("velk_last_sleep_date_extraction", at(1));

  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    // The child makes its own connection; the parent's must not be used across fork().
    auto opened = UserDefaults::open(path);
    if (!opened.isSuccess())
      _exit(2);
    auto mine = std::move(opened).value();
    if (mine->date("velk_last_sleep_date_extraction") != at(1))
      _exit(3);
    mine->setDate("velk_last_sleep_date_extraction", at(731'000'000.5));
    mine->setString("from_child", "yes");
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(parent->date("velk_last_sleep_date_extraction"), at(731'000'000.5));
  EXPECT_EQ(parent->string("from_child"), "yes");
}

TEST(UserDefaultsTest, AFileThatIsNoStoreIsRefusedAndLeftAlone) {
  TempDir folder;
  const std::string garbage = "this is not a database\n" + std::string(8192, 'x');
  const auto path = folder.write("defaults.sqlite", garbage);
  auto opened = UserDefaults::open(path);
  ASSERT_FALSE(opened.isSuccess());
  EXPECT_EQ(opened.error().domain(), UserDefaults::kErrorDomain);
  EXPECT_NE(opened.error().message().find(path.string()), std::string::npos);
  EXPECT_EQ(contents(path), garbage);

  // A database of some other program, with a table of the same name but other columns.
  const auto foreign = folder.file("foreign.sqlite");
  sqlite3* connection = nullptr;
  ASSERT_EQ(sqlite3_open(foreign.c_str(), &connection), SQLITE_OK);
  ASSERT_EQ(
      sqlite3_exec(connection, "CREATE TABLE defaults (name TEXT)", nullptr, nullptr, nullptr),
      SQLITE_OK);
  sqlite3_close(connection);
  const auto before = contents(foreign);
  EXPECT_FALSE(UserDefaults::open(foreign).isSuccess());
  EXPECT_EQ(contents(foreign), before);

  // A parent "folder" that is a file cannot hold the store.
  EXPECT_FALSE(UserDefaults::open(folder.write("blocker", "file") / "defaults.sqlite").isSuccess());
}

TEST(UserDefaultsConcurrencyTest, WritersOnManyThreadsAndInstancesLoseNothing) {
  TempDir folder;
  const auto path = folder.file("defaults.sqlite");
  auto shared = openOrFail(path);
  const auto key = [](int t, int i) { return "key" + std::to_string(t) + "_" + std::to_string(i); };
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      // Half the threads share one instance, half open their own connection.
      auto own = t % 2 == 0 ? shared : openOrFail(path);
      for (int i = 0; i < 25; ++i)
        own->setDate(key(t, i), at(t * 100 + i));
    });
  }
  for (auto& thread : threads)
    thread.join();
  int found = 0;
  for (int t = 0; t < 4; ++t) {
    for (int i = 0; i < 25; ++i)
      found += shared->date(key(t, i)) == at(t * 100 + i);
  }
  EXPECT_EQ(found, 100);
}

}  // namespace
}  // namespace velk::platform
