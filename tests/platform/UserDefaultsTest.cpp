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
    return nullptr;
  }
  return std::move(opened).value();
}

std::string contents(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(UserDefaultsTest, ValuesKeepTheirTypeAndReplaceEachOther) {
  TempDir folder;
  auto defaults = openOrFail(folder.file("nested/folders/defaults.sqlite"));
  ASSERT_TRUE(defaults);
  EXPECT_EQ(defaults->date("when"), std::nullopt);
  EXPECT_FALSE(defaults->contains("when"));

  const Date when = Date::fromReferenceSeconds(731'741'400.125);
  defaults->setDate("when", when);
  EXPECT_EQ(defaults->date("when"), when);
  EXPECT_EQ(defaults->string("when"), std::nullopt);

  // A string under the key replaces the date, and the key no longer reads as a date.
  defaults->setString("when", "2024-03-10");
  EXPECT_EQ(defaults->date("when"), std::nullopt);
  EXPECT_EQ(defaults->string("when"), "2024-03-10");
  EXPECT_TRUE(defaults->contains("when"));

  defaults->setDate("when", Date::fromReferenceSeconds(-5.5));
  EXPECT_EQ(defaults->date("when"), Date::fromReferenceSeconds(-5.5));
  defaults->setString("other", std::string("with\0zero", 9));
  EXPECT_EQ(defaults->string("other"), std::string("with\0zero", 9));

  defaults->remove("when");
  EXPECT_EQ(defaults->date("when"), std::nullopt);
  EXPECT_FALSE(defaults->contains("when"));
  EXPECT_EQ(defaults->string("other"), std::string("with\0zero", 9));
}

TEST(UserDefaultsTest, InstancesOverOnePathShareValuesAndTheyOutliveTheInstance) {
  TempDir folder;
  const auto path = folder.file("defaults.sqlite");
  auto first = openOrFail(path);
  auto second = openOrFail(path);
  ASSERT_TRUE(first && second);
  first->setDate("k", Date::fromReferenceSeconds(10));
  EXPECT_EQ(second->date("k"), Date::fromReferenceSeconds(10));
  second->setDate("k", Date::fromReferenceSeconds(20));
  EXPECT_EQ(first->date("k"), Date::fromReferenceSeconds(20));
  first.reset();
  second.reset();
  EXPECT_EQ(openOrFail(path)->date("k"), Date::fromReferenceSeconds(20));
}

TEST(UserDefaultsTest, AnotherProcessSeesWhatOneWrites) {
  TempDir folder;
  const auto path = folder.file("defaults.sqlite");
  auto parent = openOrFail(path);
  ASSERT_TRUE(parent);
  parent->setDate("velk_last_sleep_date_extraction", Date::fromReferenceSeconds(1));

  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    // The child makes its own connection; the parent's must not be used across fork().
    auto opened = UserDefaults::open(path);
    if (!opened.isSuccess())
      _exit(2);
    auto mine = std::move(opened).value();
    if (mine->date("velk_last_sleep_date_extraction") != Date::fromReferenceSeconds(1))
      _exit(3);
    mine->setDate("velk_last_sleep_date_extraction", Date::fromReferenceSeconds(731'000'000.5));
    mine->setString("from_child", "yes");
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(parent->date("velk_last_sleep_date_extraction"),
            Date::fromReferenceSeconds(731'000'000.5));
  EXPECT_EQ(parent->string("from_child"), "yes");
}

TEST(UserDefaultsTest, AFileThatIsNoStoreIsRefusedAndLeftAlone) {
  TempDir folder;
  const std::string garbage(8192, 'x');
  const auto path = folder.write("defaults.sqlite", "this is not a database\n" + garbage);
  auto opened = UserDefaults::open(path);
  ASSERT_FALSE(opened.isSuccess());
  EXPECT_EQ(opened.error().domain(), UserDefaults::kErrorDomain);
  EXPECT_NE(opened.error().message().find(path.string()), std::string::npos);
  EXPECT_EQ(contents(path), "this is not a database\n" + garbage);

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
  const auto blocker = folder.write("blocker", "file");
  EXPECT_FALSE(UserDefaults::open(blocker / "defaults.sqlite").isSuccess());
}

TEST(UserDefaultsTest, InMemoryStoresAreSharedByHolderOnly) {
  auto shared = UserDefaults::inMemory();
  auto sameStore = shared;
  sameStore->setDate("k", Date::fromReferenceSeconds(3));
  EXPECT_EQ(shared->date("k"), Date::fromReferenceSeconds(3));
  EXPECT_EQ(UserDefaults::inMemory()->date("k"), std::nullopt);
  EXPECT_EQ(shared->path(), ":memory:");
}

TEST(UserDefaultsConcurrencyTest, WritersOnManyThreadsAndInstancesLoseNothing) {
  TempDir folder;
  const auto path = folder.file("defaults.sqlite");
  auto shared = openOrFail(path);
  ASSERT_TRUE(shared);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      // Half the threads share one instance, half open their own connection.
      auto own = t % 2 == 0 ? shared : openOrFail(path);
      for (int i = 0; i < 25; ++i) {
        own->setDate("key" + std::to_string(t) + "_" + std::to_string(i),
                     Date::fromReferenceSeconds(t * 100 + i));
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  int found = 0;
  for (int t = 0; t < 4; ++t) {
    for (int i = 0; i < 25; ++i) {
      found += shared->date("key" + std::to_string(t) + "_" + std::to_string(i)) ==
               Date::fromReferenceSeconds(t * 100 + i);
    }
  }
  EXPECT_EQ(found, 100);
}

}  // namespace
}  // namespace velk::platform
