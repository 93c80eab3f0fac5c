// Faults around the files that hold state: an import killed part way, a database that is
// corrupt, locked, on a full or read-only disk, and two processes writing one user-defaults
// store. Each ends in a clear error, and the content from before stays whole.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <random>
#include <string>
#include <thread>

#include "ingest/ExportTestSupport.h"
#include "ingest/ImportedHealthDatabase.h"
#include "platform/UserDefaults.h"
#include "support/TempDir.h"
#include "velk/ExportImport.h"

namespace velk::ingest {
namespace {

using testing::exportOf;
using testing::readFile;
using testing::storedSteps;

TEST(ImportFaultTest, AnImportKilledAtAnyMomentLeavesAUsableDatabase) {
  testing::TempDir dir;
  const auto database = dir.file("health.db");
  ASSERT_TRUE(importExport(dir.write("small.xml", exportOf(10)), database).isSuccess());
  const auto large = dir.write("large.xml", exportOf(60000));

  const auto started = std::chrono::steady_clock::now();
  ASSERT_TRUE(importExport(large, dir.file("timing.db")).isSuccess());
  const auto took = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - started);

  std::mt19937 random(20240310);
  std::uniform_int_distribution<long> delay(0, took.count());
  for (int run = 0; run < 8; ++run) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::_exit(importExport(large, database).isSuccess() ? 0 : 1);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    // Killed: the small database; finished first: the large one. Never anything else.
    const auto count = storedSteps(database).size();
    EXPECT_TRUE(count == 10 || count == 60000) << "run " << run << ": " << count << " samples";
  }
  // Whatever the killed imports left beside the database, the next one succeeds.
  ASSERT_TRUE(importExport(dir.write("again.xml", exportOf(20)), database).isSuccess());
  EXPECT_EQ(storedSteps(database).size(), 20u);
}

TEST(ImportFaultTest, ACorruptDatabaseIsRefusedAndAnImportReplacesIt) {
  testing::TempDir dir;
  const auto database = dir.file("health.db");
  ASSERT_TRUE(importExport(dir.write("a.xml", exportOf(100)), database).isSuccess());
  const std::string bytes = readFile(database);
  const auto third = bytes.size() / 3;
  for (const auto& damaged :
       {std::string("not a database at all"), bytes.substr(0, bytes.size() / 2),
        bytes.substr(0, 100) + std::string(bytes.size() - 100, '\x5a'),
        bytes.substr(0, third) + std::string(third, '\x5a') + bytes.substr(2 * third)}) {
    dir.write("health.db", damaged);
    const auto opened = ImportedHealthDatabase::open(database);
    if (opened.isSuccess()) {
      // What can be read may be read, as long as nothing breaks.
      (void)opened.value()->samples("HKQuantityTypeIdentifierStepCount", std::nullopt,
                                    std::nullopt);
    } else {
      EXPECT_EQ(opened.error().domain(), kImportDatabaseErrorDomain);
      EXPECT_NE(opened.error().message().find("health.db"), std::string::npos)
          << opened.error().message();
    }
  }
  ASSERT_TRUE(importExport(dir.write("b.xml", exportOf(7)), database).isSuccess());
  EXPECT_EQ(storedSteps(database).size(), 7u);
}

TEST(ImportFaultTest, ADatabaseLockedByAnotherConnectionStaysWholeForIt) {
  testing::TempDir dir;
  const auto database = dir.file("health.db");
  ASSERT_TRUE(importExport(dir.write("a.xml", exportOf(30)), database).isSuccess());
  sqlite3* holder = nullptr;
  ASSERT_EQ(sqlite3_open(database.c_str(), &holder), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(holder, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);

  const auto whileLocked = ImportedHealthDatabase::open(database);
  if (whileLocked.isFailure()) {
    EXPECT_NE(whileLocked.error().message().find("health.db"), std::string::npos);
  }
  // The import writes a file of its own and puts it in place: the lock does not stop it.
  ASSERT_TRUE(importExport(dir.write("b.xml", exportOf(40)), database).isSuccess());
  EXPECT_EQ(storedSteps(database).size(), 40u);
  // The holder still reads the database it locked (its tables are there).
  EXPECT_EQ(sqlite3_exec(holder, "SELECT * FROM meta", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_exec(holder, "COMMIT", nullptr, nullptr, nullptr);
  sqlite3_close(holder);
}

// A tmpfs of four MiB; skipped where mounting is not allowed (not root, or a container without
// the capability).
TEST(ImportFaultTest, AFullOrReadOnlyDiskFailsTheImportAndKeepsTheOldDatabase) {
  const testing::TempDir disk;
  const std::string at = disk.path().string();
  if (::mount("tmpfs", at.c_str(), "tmpfs", 0, "size=4m") != 0) {
    GTEST_SKIP() << "cannot mount a small tmpfs here";
  }
  const std::unique_ptr<const char, void (*)(const char*)> unmount(
      at.c_str(), [](const char* path) { ::umount2(path, MNT_DETACH); });
  testing::TempDir dir;
  const auto database = disk.file("health.db");
  ASSERT_TRUE(importExport(dir.write("small.xml", exportOf(10)), database).isSuccess());
  // Fill the disk up to its last 256 KiB.
  const auto space = std::filesystem::space(database);
  {
    std::ofstream filler(disk.file("filler"), std::ios::binary);
    filler << std::string(space.available - (256u << 10), 'f');
  }
  const auto full = importExport(dir.write("large.xml", exportOf(40000)), database);
  ASSERT_TRUE(full.isFailure());
  EXPECT_EQ(full.error().domain(), kImportDatabaseErrorDomain);
  EXPECT_EQ(storedSteps(database).size(), 10u);
  EXPECT_FALSE(std::filesystem::exists(disk.file("health.db.importing")))
      << "a failed import left its partial file on the full disk";
  // With the space freed, an import succeeds.
  std::filesystem::remove(disk.file("filler"));
  const auto fits = importExport(dir.write("b.xml", exportOf(12)), database);
  ASSERT_TRUE(fits.isSuccess()) << fits.error().message();

  ASSERT_EQ(::mount("tmpfs", at.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, "size=4m"), 0);
  const auto readOnly = importExport(dir.write("c.xml", exportOf(5)), database);
  ASSERT_TRUE(readOnly.isFailure());
  EXPECT_NE(readOnly.error().message().find("health.db"), std::string::npos)
      << readOnly.error().message();
  EXPECT_EQ(storedSteps(database).size(), 12u);
}

TEST(ImportFaultTest, TwoProcessesWritingOneUserDefaultsStoreLoseNoWrite) {
  testing::TempDir dir;
  const auto path = dir.file("state.sqlite");
  ASSERT_TRUE(platform::UserDefaults::open(path).isSuccess());
  constexpr int kWrites = 200;
  const auto key = [](int writer, int i) {
    return "writer" + std::to_string(writer) + "-" + std::to_string(i);
  };
  pid_t children[2];
  for (int writer = 0; writer < 2; ++writer) {
    children[writer] = ::fork();
    ASSERT_GE(children[writer], 0);
    if (children[writer] == 0) {
      auto store = platform::UserDefaults::open(path);
      if (store.isFailure()) {
        ::_exit(2);
      }
      for (int i = 0; i < kWrites; ++i) {
        store.value()->setDate(key(writer, i), Date::fromReferenceSeconds(i));
      }
      ::_exit(0);
    }
  }
  for (const pid_t child : children) {
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  const auto store = platform::UserDefaults::open(path);
  ASSERT_TRUE(store.isSuccess());
  int found = 0;
  for (int writer = 0; writer < 2; ++writer) {
    for (int i = 0; i < kWrites; ++i) {
      found += store.value()->date(key(writer, i)) == Date::fromReferenceSeconds(i) ? 1 : 0;
    }
  }
  EXPECT_EQ(found, 2 * kWrites);

  // A file that is no store is refused and left as it was.
  const auto other = dir.write("other.sqlite", "some bytes that are no database");
  EXPECT_TRUE(platform::UserDefaults::open(other).isFailure());
  EXPECT_EQ(readFile(other), "some bytes that are no database");
}

}  // namespace
}  // namespace velk::ingest
