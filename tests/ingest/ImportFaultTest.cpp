// Faults around the files that hold state: an import killed part way, a database that is
// corrupt, locked, on a full or read-only disk, and two processes writing one user-defaults
// store. Each ends in a clear error, and the content from before stays whole.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <random>
#include <string>
#include <thread>

#include "ingest/ExportTestSupport.h"
#include "ingest/ImportedHealthDatabase.h"
#include "platform/HKHealthStore.h"
#include "platform/HKObjectType.h"
#include "platform/HKStatisticsCollectionQuery.h"
#include "platform/UserDefaults.h"
#include "support/StoreFixture.h"
#include "support/TempDir.h"
#include "support/TestDevice.h"
#include "velk/ExportImport.h"

namespace velk::ingest {
namespace {

using testing::exportOf;
using testing::readFile;
using testing::storedSteps;

constexpr const char* kSteps = "HKQuantityTypeIdentifierStepCount";

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
  // Whatever the killed imports left beside the database, the next one succeeds and clears it
  // (the single file of earlier versions too), but not the file of an import still running.
  std::ofstream(dir.file("health.db.importing")) << "partial";
  const int running = ::open(dir.write("health.db.importing-running", "").c_str(), O_RDONLY);
  ASSERT_EQ(::flock(running, LOCK_EX), 0);
  ASSERT_TRUE(importExport(dir.write("again.xml", exportOf(20)), database).isSuccess());
  EXPECT_EQ(storedSteps(database).size(), 20u);
  EXPECT_EQ(testing::importFilesBeside(database),
            std::vector<std::string>{"health.db.importing-running"});
  ::close(running);
}

// Two imports of one database at once, again and again, while a reader keeps opening it: both
// succeed, the reader always finds a whole database, and what stays is exactly the data of one
// of them: of the one that finished last, whenever their ends lie clearly apart.
TEST(ImportConcurrencyTest, TwoImportsOfOneDatabaseAtOnceInstallOnlyTheirOwnData) {
  testing::TempDir dir;
  const auto database = dir.file("health.db");
  ASSERT_TRUE(importExport(dir.write("old.xml", exportOf(2, 500)), database).isSuccess());
  const auto large = dir.write("large.xml", exportOf(6000, 1000));
  const auto small = dir.write("small.xml", exportOf(1, 7));
  const auto expected = [](std::size_t count) {
    return count == 6000 ? std::vector<double>{1000, 1001, 6999} : std::vector<double>{7, 7, 7};
  };

  std::atomic<bool> importing{true};
  std::atomic<int> unreadable{0};
  std::thread reader([&] {
    while (importing.load()) {
      const auto opened = ImportedHealthDatabase::open(database);
      if (opened.isFailure() ||
          (opened.value()->sampleCount() != 2 && opened.value()->sampleCount() != 6000 &&
           opened.value()->sampleCount() != 1)) {
        ++unreadable;
      }
    }
  });
  std::mt19937 random(20240311);
  using Clock = std::chrono::steady_clock;
  for (int run = 0; run < 30; ++run) {
    Clock::time_point largeDone;
    Clock::time_point smallDone;
    bool largeSucceeded = false;
    std::thread first([&] {
      largeSucceeded = importExport(large, database).isSuccess();
      largeDone = Clock::now();
    });
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
    const bool smallSucceeded = importExport(small, database).isSuccess();
    smallDone = Clock::now();
    first.join();
    ASSERT_TRUE(largeSucceeded && smallSucceeded) << "run " << run;

    const auto steps = storedSteps(database);
    ASSERT_TRUE(steps.size() == 6000 || steps.size() == 1) << "run " << run << ": " << steps.size();
    EXPECT_EQ(expected(steps.size()),
              (std::vector<double>{steps.front(), steps[steps.size() > 1 ? 1 : 0], steps.back()}))
        << "run " << run;
    if (largeDone - smallDone > std::chrono::milliseconds(50)) {
      EXPECT_EQ(steps.size(), 6000u) << "run " << run << ": the large import finished last";
    } else if (smallDone - largeDone > std::chrono::milliseconds(50)) {
      EXPECT_EQ(steps.size(), 1u) << "run " << run << ": the small import finished last";
    }
    EXPECT_TRUE(testing::importFilesBeside(database).empty()) << "run " << run;
  }
  importing = false;
  reader.join();
  EXPECT_EQ(unreadable.load(), 0) << "a reader found no whole database while imports ran";
}

// Files that are no import database (missing, text, an export, someone else's SQLite, ours from
// another format, ours cut or overwritten) are refused with an error naming the file, or read as
// far as they can be without breaking; an import then replaces them.
TEST(ImportFaultTest, AFileThatIsNoImportDatabaseIsRefusedAndAnImportReplacesIt) {
  testing::TempDir dir;
  const auto expectRefused = [](const std::filesystem::path& path, DatabaseErrorCode code) {
    const auto opened = ImportedHealthDatabase::open(path);
    ASSERT_TRUE(opened.isFailure()) << path;
    EXPECT_EQ(opened.error().domain(), kImportDatabaseErrorDomain);
    EXPECT_EQ(opened.error().code(), static_cast<std::int64_t>(code));
    EXPECT_NE(opened.error().message().find(path.string()), std::string::npos);
  };
  expectRefused(dir.file("missing.db"), DatabaseErrorCode::cannotOpen);
  expectRefused(dir.write("text.db", std::string(5000, 'x')), DatabaseErrorCode::notADatabase);
  expectRefused(testing::realExport("watch5-2020/export.xml"), DatabaseErrorCode::notADatabase);
  const auto edit = [](const std::filesystem::path& path, const char* sql) {
    sqlite3* connection = nullptr;
    sqlite3_open(path.c_str(), &connection);
    sqlite3_exec(connection, sql, nullptr, nullptr, nullptr);
    sqlite3_close(connection);
  };
  edit(dir.file("other.db"),
       "CREATE TABLE meta(key, value); INSERT INTO meta VALUES('format','x');");
  expectRefused(dir.file("other.db"), DatabaseErrorCode::notADatabase);

  const auto database = dir.file("health.db");
  ASSERT_TRUE(importExport(dir.write("a.xml", exportOf(100)), database).isSuccess());
  const std::string bytes = readFile(database);
  for (const char* version : {"1", "99"}) {  // before the checksums, and from a later format
    edit(database,
         (std::string("UPDATE meta SET value = '") + version + "' WHERE key = 'version';").c_str());
    expectRefused(database, DatabaseErrorCode::wrongVersion);
    EXPECT_THAT(ImportedHealthDatabase::open(database).error().message(),
                ::testing::HasSubstr("import the export again"));
  }
  const auto third = bytes.size() / 3;
  for (const auto& damaged :
       {bytes.substr(0, bytes.size() / 2),
        bytes.substr(0, 100) + std::string(bytes.size() - 100, '\x5a'),
        bytes.substr(0, third) + std::string(third, '\x5a') + bytes.substr(2 * third)}) {
    dir.write("health.db", damaged);
    const auto opened = ImportedHealthDatabase::open(database);
    if (opened.isSuccess()) {
      // What can be read may be read, as long as nothing breaks.
      (void)opened.value()->samples(kSteps, std::nullopt, std::nullopt);
    } else {
      EXPECT_EQ(opened.error().domain(), kImportDatabaseErrorDomain);
      EXPECT_NE(opened.error().message().find("health.db"), std::string::npos)
          << opened.error().message();
    }
  }
  ASSERT_TRUE(importExport(dir.write("b.xml", exportOf(7)), database).isSuccess());
  EXPECT_EQ(storedSteps(database).size(), 7u);
}

// Bytes changed inside the blocks after the import, a tenth of them, the sizes kept: opening
// still works (the blocks are read only when asked for), but every query that reads them
// completes with a database error naming the file, the platform's statistics too, never with
// what was left of the samples.
TEST(ImportFaultTest, ADamagedBlockFailsTheQueriesThatReadIt) {
  testing::TempDir dir;
  const auto database = dir.file("health.db");
  ASSERT_TRUE(importExport(dir.write("a.xml", exportOf(500)), database).isSuccess());
  sqlite3* handle = nullptr;
  ASSERT_EQ(sqlite3_open(database.c_str(), &handle), SQLITE_OK);
  {
    sqlite3_stmt* read = nullptr;
    sqlite3_stmt* write = nullptr;
    sqlite3_prepare_v2(handle, "SELECT rowid, samples FROM blocks", -1, &read, nullptr);
    sqlite3_prepare_v2(handle, "UPDATE blocks SET samples = ?1 WHERE rowid = ?2", -1, &write,
                       nullptr);
    std::vector<std::pair<sqlite3_int64, std::string>> blocks;
    while (sqlite3_step(read) == SQLITE_ROW) {
      std::string bytes(static_cast<const char*>(sqlite3_column_blob(read, 1)),
                        static_cast<std::size_t>(sqlite3_column_bytes(read, 1)));
      for (std::size_t at = 7; at < bytes.size(); at += 10) {
        bytes[at] = static_cast<char>(bytes[at] ^ 0x5a);
      }
      blocks.emplace_back(sqlite3_column_int64(read, 0), std::move(bytes));
    }
    ASSERT_FALSE(blocks.empty());
    for (const auto& [row, bytes] : blocks) {
      sqlite3_bind_blob(write, 1, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
      sqlite3_bind_int64(write, 2, row);
      ASSERT_EQ(sqlite3_step(write), SQLITE_DONE);
      sqlite3_reset(write);
    }
    sqlite3_finalize(read);
    sqlite3_finalize(write);
  }

  {
    auto opened = ImportedHealthDatabase::open(database);
    ASSERT_TRUE(opened.isSuccess()) << opened.error().message();
    const auto read = opened.value()->samples(kSteps, std::nullopt, std::nullopt);
    ASSERT_TRUE(read.isFailure());
    EXPECT_EQ(read.error().domain(), kImportDatabaseErrorDomain);
    EXPECT_EQ(read.error().code(), static_cast<std::int64_t>(DatabaseErrorCode::damaged));
    EXPECT_THAT(read.error().message(),
                ::testing::AllOf(::testing::HasSubstr("health.db: damaged import database"),
                                 ::testing::HasSubstr("checksum")));

    testing::TestDevice device({.healthDatabase = opened.value()});
    const platform::HKHealthStore store;
    const auto steps = platform::HKObjectType::quantityTypeForIdentifier(kSteps).value();
    const auto samples = testing::runSampleQuery(store, steps, std::nullopt);
    EXPECT_FALSE(samples.samples);
    ASSERT_TRUE(samples.error);
    EXPECT_EQ(samples.error->message(), read.error().message());
    platform::DateComponents day;
    day.day = 1;
    const auto sums = testing::runCollectionQuery(
        store, platform::HKStatisticsCollectionQuery(steps, std::nullopt,
                                                     platform::HKStatisticsOptions::cumulativeSum,
                                                     testing::utcDate(2024, 1, 1), day));
    EXPECT_FALSE(sums.collection);
    ASSERT_TRUE(sums.error);
    EXPECT_EQ(sums.error->message(), read.error().message());
    EXPECT_EQ(opened.value()->firstFailedRead(), read.error());
  }
  sqlite3_close(handle);
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
  EXPECT_TRUE(testing::importFilesBeside(database).empty())
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
}

}  // namespace
}  // namespace velk::ingest
