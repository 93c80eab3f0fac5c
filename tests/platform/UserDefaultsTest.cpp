#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>
#include <vector>

#include "platform/UserDefaults.h"
#include "support/TempDir.h"

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
  const auto held = UserDefaults::inMemory();
  held->setDate("k", at(3));
  EXPECT_EQ(UserDefaults::inMemory()->date("k"), std::nullopt);
}

TEST(UserDefaultsTest, AFileOfAnotherProgramOrUnderAFileIsRefusedAndLeftAlone) {
  TempDir folder;
  // A database of some other program, with a table of the same name but other columns.
  const auto foreign = folder.file("foreign.sqlite");
  velk::testing::executeSql(foreign, "CREATE TABLE defaults (name TEXT)");
  const auto before = velk::testing::readFile(foreign);
  const auto opened = UserDefaults::open(foreign);
  ASSERT_FALSE(opened.isSuccess());
  EXPECT_EQ(opened.error().domain(), UserDefaults::kErrorDomain);
  EXPECT_NE(opened.error().message().find(foreign.string()), std::string::npos);
  EXPECT_EQ(velk::testing::readFile(foreign), before);
  // A parent "folder" that is a file cannot hold the store.
  EXPECT_FALSE(UserDefaults::open(folder.write("blocker", "file") / "defaults.sqlite").isSuccess());
  // A folder given as the store is named as one.
  const auto directory = UserDefaults::open(folder.path());
  ASSERT_FALSE(directory.isSuccess());
  EXPECT_NE(directory.error().message().find("it is a directory"), std::string::npos);
}

// A value is safe once set: a process killed right after setting it loses nothing, and an
// instance that another process holds open (and has read through) sees the new value.
TEST(UserDefaultsTest, AValueSetSurvivesAKilledProcessAndReachesInstancesHeldOpen) {
  TempDir folder;
  const auto path = folder.file("defaults.sqlite");
  // The child is forked before this process opens the file, so that it inherits no connection,
  // and waits on the pipe until the parent's instance has written and read.
  int go[2];
  ASSERT_EQ(::pipe(go), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::close(go[1]);
    char byte = 0;
    if (::read(go[0], &byte, 1) == 1) {
      if (auto opened = UserDefaults::open(path); opened.isSuccess()) {
        opened.value()->setDate("k", at(2));
      }
    }
    ::raise(SIGKILL);
  }
  ::close(go[0]);
  auto held = openOrFail(path);
  held->setDate("k", at(1));
  EXPECT_EQ(held->date("k"), at(1));
  EXPECT_EQ(::write(go[1], "!", 1), 1);
  ::close(go[1]);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  EXPECT_EQ(held->date("k"), at(2));
  held.reset();
  EXPECT_EQ(openOrFail(path)->date("k"), at(2));
}

// Writers on many threads, through one shared instance or instances of their own, lose nothing,
// and the values outlive the instances.
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
  shared.reset();
  const auto reopened = openOrFail(path);
  int found = 0;
  for (int t = 0; t < 4; ++t) {
    for (int i = 0; i < 25; ++i)
      found += reopened->date(key(t, i)) == at(t * 100 + i);
  }
  EXPECT_EQ(found, 100);
}

}  // namespace
}  // namespace velk::platform
