// An import through its life and its faults: made, replaced, kept by failed imports; answering as
// the in-memory store of the same export; killed part way, run twice at once, on a corrupt,
// damaged, locked, full or read-only database; and two processes writing one user-defaults store.
// Each fault ends in a clear error, and the content from before stays whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
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
#include <set>
#include <string>
#include <thread>

#include "ingest/ExportErrors.h"
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
using testing::realExport;
using testing::storedSteps;

using SampleValues = std::tuple<std::string, std::string, std::string, int, double, std::string,
                                double, double, int>;

// Everything a sample says, in a form that compares and prints.
std::vector<SampleValues> valuesOf(const std::vector<platform::StoredSample>& samples) {
  std::vector<SampleValues> values;
  for (const platform::StoredSample& sample : samples) {
    const platform::SampleRecord r = sample.record();
    values.emplace_back(r.type, r.sourceBundleIdentifier, r.sourceName, static_cast<int>(r.kind),
                        r.value, r.unit, r.start.timeIntervalSinceReferenceDate(),
                        r.end.timeIntervalSinceReferenceDate(),
                        r.wasUserEntered ? (*r.wasUserEntered ? 2 : 1) : 0);
  }
  return values;
}

// One database through its life: not made by a failed import, made, replaced by a second
// import, kept by a failed one.
TEST(ImportTest, ImportingAgainReplacesTheContentAndAFailedImportKeepsTheOldOne) {
  const testing::TempDir dir;
  const auto database = dir.file("health.db");
  // No export at all: the reader's error, and no file at all where the database would be.
  const auto notAnExport =
      importExport(dir.write("notes.xml", "<notes><note>hello</note></notes>\n"), database);
  ASSERT_TRUE(notAnExport.isFailure());
  EXPECT_EQ(notAnExport.error().domain(), kExportErrorDomain);
  EXPECT_EQ(notAnExport.error().code(), static_cast<std::int64_t>(ExportErrorCode::notAnExport));
  EXPECT_FALSE(std::filesystem::exists(database));
  EXPECT_TRUE(testing::importFilesBeside(database).empty());

  ASSERT_TRUE(importExport(dir.write("a.xml", exportOf(3, 11)), database).isSuccess());
  EXPECT_EQ(storedSteps(database), (std::vector<double>{11, 12, 13}));
  const auto second = importExport(dir.write("b.xml", exportOf(1, 21)), database);
  ASSERT_TRUE(second.isSuccess());
  EXPECT_EQ(second.value().samplesStored, 1u);
  EXPECT_EQ(storedSteps(database), (std::vector<double>{21}));

  // An import the host stops (its user pressed Ctrl-C) fails, keeping the old database and
  // leaving no half-made file beside it.
  ImportOptions stopping;
  stopping.stopRequested = [] { return true; };
  const auto stopped = importExport(dir.write("c.xml", exportOf(5, 31)), database, stopping);
  ASSERT_TRUE(stopped.isFailure());
  EXPECT_EQ(stopped.error().code(), static_cast<std::int64_t>(ExportErrorCode::stopped));
  EXPECT_EQ(storedSteps(database), (std::vector<double>{21}));
  EXPECT_TRUE(testing::importFilesBeside(database).empty());

  // A target that cannot be replaced (a folder) fails without touching it.
  std::filesystem::create_directories(dir.file("taken/inside"));
  const auto blocked = importExport(dir.file("a.xml"), dir.file("taken"));
  ASSERT_TRUE(blocked.isFailure());
  EXPECT_EQ(blocked.error().code(), static_cast<std::int64_t>(DatabaseErrorCode::cannotReplace));
  EXPECT_TRUE(std::filesystem::is_directory(dir.file("taken/inside")));
}

TEST(ImportTest, WarningsOfTheExportAndProgressReachTheCaller) {
  const testing::TempDir dir;
  const auto text = testing::exportWith(
      testing::stepRecord(5) +
      testing::stepRecord(6, "yesterday at noon") +  // unreadable: reported, not stored
      " <Record type=\"HKQuantityTypeIdentifierBodyMass\" sourceName=\"Scale\" unit=\"furlong\" "
      "startDate=\"2024-03-10 08:30:00 +0100\" endDate=\"2024-03-10 08:30:00 +0100\" "
      "value=\"70\"/>\n" +
      testing::stepRecord(7));
  std::vector<ImportProgress> reports;
  const auto summary = importExport(dir.write("export.xml", text), dir.file("h.db"), {},
                                    [&reports](const ImportProgress& p) { reports.push_back(p); });
  ASSERT_TRUE(summary.isSuccess());
  EXPECT_EQ(summary.value().report.count(ExportIssue::unreadableDate), 1u);
  EXPECT_EQ(summary.value().samplesStored, 2u);
  EXPECT_EQ(summary.value().samplesWithoutUnit, 1u);
  EXPECT_EQ(summary.value().xmlBytes, text.size());
  EXPECT_EQ(storedSteps(dir.file("h.db")), (std::vector<double>{5, 7}));

  ASSERT_FALSE(reports.empty());
  EXPECT_TRUE(reports.back().finished);
  EXPECT_EQ(reports.back().bytesRead, text.size());
  EXPECT_EQ(reports.back().records, 2u);
  for (std::size_t i = 1; i < reports.size(); ++i) {
    EXPECT_GE(reports[i].bytesRead, reports[i - 1].bytesRead);
  }
  // The database remembers what it was made from and what was wrong with it.
  const auto opened = ImportedHealthDatabase::open(dir.file("h.db"));
  ASSERT_TRUE(opened.isSuccess());
  EXPECT_NE(opened.value()->importInfo().at("warnings").find("date"), std::string::npos);
  EXPECT_NE(opened.value()->importInfo().at("export").find("export.xml"), std::string::npos);
}

// Every type of every real export and of one with samples that last weeks (a wrong clock, a long
// sleep record), over open and closed windows of many sizes and places, on four threads at once:
// the database answers exactly as the in-memory store of the same export, in the same order.
TEST(ImportedDatabaseConcurrencyTest, AnswersEveryWindowAsTheInMemoryStoreOfTheSameExport) {
  const testing::TempDir dir;
  const auto longSamples =
      dir.write("long.xml",
                testing::exportWith(
                    testing::sleepRecord("InBed", "Clock", "2024-03-01 22:00:00 +0000",
                                         "2024-03-20 07:00:00 +0000") +
                    testing::sleepRecord("AsleepCore", "Anna's iPhone", "2024-03-10 23:00:00 +0000",
                                         "2024-03-11 06:00:00 +0000")));
  for (const auto& path :
       {realExport("watch5-2020/export.xml"), realExport("curated-2021/sampleexport.xml"),
        realExport("curated-2021/sampleexport-2.xml"), longSamples}) {
    SCOPED_TRACE(path);
    testing::CollectingSink sink;
    ASSERT_TRUE(ExportReader().read(path, sink).isSuccess());
    ASSERT_TRUE(importExport(path, dir.file("health.db")).isSuccess());
    const auto opened = ImportedHealthDatabase::open(dir.file("health.db"));
    ASSERT_TRUE(opened.isSuccess());
    const auto& database = opened.value();
    // The in-memory store of the same records; those whose unit names no unit are left out, as
    // the import leaves them out.
    std::vector<platform::SampleRecord> kept = sink.records;
    std::erase_if(kept, [](const auto& record) { return !platform::StoredSample::from(record); });
    const auto memory = std::make_shared<platform::InMemoryHealthDatabase>(
        platform::HealthDatabaseSettings{}, sink.me.value_or(platform::Characteristics{}), kept);
    EXPECT_EQ(database->sampleCount(), memory->sampleCount());

    std::set<std::string> types = {"HKQuantityTypeIdentifierBodyMass"};  // perhaps absent
    double earliest = 1e18;
    double latest = -1e18;
    for (const auto& record : sink.records) {
      types.insert(record.type);
      earliest = std::min(earliest, record.start.timeIntervalSinceReferenceDate());
      latest = std::max(latest, record.end.timeIntervalSinceReferenceDate());
    }
    // Windows open at both ends, at one end, and closed, of many sizes and places.
    using Window = std::pair<std::optional<Date>, std::optional<Date>>;
    std::vector<Window> windows = {{std::nullopt, std::nullopt}};
    for (double from = earliest - 3600; from < latest; from += (latest - earliest) / 23) {
      const Date start = Date::fromReferenceSeconds(from);
      windows.insert(windows.end(), {{start, std::nullopt}, {std::nullopt, start}});
      for (const double length : {0.0, 3600.0, 86400.0, 86400.0 * 9}) {
        windows.emplace_back(start, start.addingTimeInterval(length));
      }
    }
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < 4; ++t) {
      threads.emplace_back([&, t] {
        std::size_t index = 0;
        for (const std::string& type : types) {
          for (const auto& [start, end] : windows) {
            if (index++ % 4 == t) {
              ASSERT_EQ(valuesOf(database->samples(type, start, end).value()),
                        valuesOf(memory->samples(type, start, end).value()))
                  << type;
            }
          }
        }
      });
    }
    for (auto& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(database->characteristics().dateOfBirth, memory->characteristics().dateOfBirth);
    EXPECT_EQ(database->characteristics().biologicalSex, memory->characteristics().biologicalSex);
  }
}

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

// Files that are no import database (missing, text, someone else's SQLite, ours from another
// format, ours cut or overwritten) are refused with an error naming the file, or read as
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
  testing::executeSql(dir.file("other.db"),
                      "CREATE TABLE meta(key, value); INSERT INTO meta VALUES('format','x');");
  expectRefused(dir.file("other.db"), DatabaseErrorCode::notADatabase);

  const auto database = dir.file("health.db");
  ASSERT_TRUE(importExport(dir.write("a.xml", exportOf(100)), database).isSuccess());
  const std::string bytes = readFile(database);
  for (const char* version : {"1", "99"}) {  // before the checksums, and from a later format
    testing::executeSql(
        database, std::string("UPDATE meta SET value = '") + version + "' WHERE key = 'version';");
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

// Bytes changed inside every block after the import, the sizes kept: opening
// still works (the blocks are read only when asked for), but every query that reads them
// completes with a database error naming the file, the platform's statistics too, never with
// what was left of the samples.
TEST(ImportFaultTest, ADamagedBlockFailsTheQueriesThatReadIt) {
  testing::TempDir dir;
  const auto database = dir.file("health.db");
  ASSERT_TRUE(importExport(dir.write("a.xml", exportOf(500)), database).isSuccess());
  testing::executeSql(database,
                      "UPDATE blocks SET samples = CAST(substr(samples, 1, 8) || x'deadbeef' || "
                      "substr(samples, 13) AS BLOB)");
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
