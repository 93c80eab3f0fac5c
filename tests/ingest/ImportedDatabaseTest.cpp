#include "velk/ingest/ImportedHealthDatabase.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>
#include <set>
#include <thread>

#include "ingest/ImportTestSupport.h"
#include "support/TempDir.h"
#include "support/TestDevice.h"
#include "velk/ingest/ExportImport.h"

namespace velk::ingest {
namespace {

using testing::valuesOf;

const std::filesystem::path kExports = testing::sourcePath("../shared/testdata/exports");

std::shared_ptr<ImportedHealthDatabase> importAndOpen(const std::filesystem::path& exportPath,
                                                      const std::filesystem::path& database) {
  const auto imported = importExport(exportPath, database);
  EXPECT_TRUE(imported.isSuccess()) << (imported.isFailure() ? imported.error().message() : "");
  auto opened = ImportedHealthDatabase::open(database);
  EXPECT_TRUE(opened.isSuccess()) << (opened.isFailure() ? opened.error().message() : "");
  return opened.isSuccess() ? opened.value() : nullptr;
}

// Every type of every real export, over open and closed windows of many sizes and places:
// the database answers exactly as the in-memory store of the same export, in the same order.
TEST(ImportedDatabaseTest, AnswersEveryWindowAsTheInMemoryStoreOfTheSameExport) {
  const testing::TempDir dir;
  for (const char* name : {"watch5-2020/export.xml", "curated-2021/sampleexport.xml",
                           "curated-2021/sampleexport-2.xml"}) {
    SCOPED_TRACE(name);
    const auto memory = testing::readIntoMemory(kExports / name);
    const auto database = importAndOpen(kExports / name, dir.file("health.db"));
    ASSERT_TRUE(memory && database);
    EXPECT_EQ(database->sampleCount(), memory->sampleCount());

    testing::CollectingSink sink;
    ASSERT_TRUE(ExportReader().read(kExports / name, sink).isSuccess());
    std::set<std::string> types;
    double earliest = 1e18;
    double latest = -1e18;
    for (const auto& record : sink.records) {
      types.insert(record.type);
      earliest = std::min(earliest, record.start.timeIntervalSinceReferenceDate());
      latest = std::max(latest, record.end.timeIntervalSinceReferenceDate());
    }
    types.insert("HKQuantityTypeIdentifierBodyMass");  // perhaps absent: both answer nothing
    for (const std::string& type : types) {
      SCOPED_TRACE(type);
      EXPECT_EQ(valuesOf(database->samples(type, std::nullopt, std::nullopt)),
                valuesOf(memory->samples(type, std::nullopt, std::nullopt)));
      for (double from = earliest - 3600; from < latest; from += (latest - earliest) / 23) {
        const Date start = Date::fromReferenceSeconds(from);
        for (const double length : {0.0, 3600.0, 86400.0, 86400.0 * 9}) {
          const Date end = start.addingTimeInterval(length);
          ASSERT_EQ(valuesOf(database->samples(type, start, end)),
                    valuesOf(memory->samples(type, start, end)));
        }
        ASSERT_EQ(valuesOf(database->samples(type, std::nullopt, start)),
                  valuesOf(memory->samples(type, std::nullopt, start)));
        ASSERT_EQ(valuesOf(database->samples(type, start, std::nullopt)),
                  valuesOf(memory->samples(type, start, std::nullopt)));
      }
    }
    EXPECT_EQ(database->characteristics().dateOfBirth, memory->characteristics().dateOfBirth);
    EXPECT_EQ(database->characteristics().biologicalSex, memory->characteristics().biologicalSex);
  }
}

// A sample that lasts weeks (a wrong clock, a long sleep record) is found from any day inside
// it, and does not hide the short samples around it.
TEST(ImportedDatabaseTest, FindsSamplesLongerThanADayFromAnyDayInside) {
  const testing::TempDir dir;
  const auto exportPath = dir.write(
      "export.xml",
      testing::exportHead() +
          " <Record type=\"HKCategoryTypeIdentifierSleepAnalysis\" sourceName=\"Clock\" "
          "startDate=\"2024-03-01 22:00:00 +0000\" endDate=\"2024-03-20 07:00:00 +0000\" "
          "value=\"HKCategoryValueSleepAnalysisInBed\"/>\n" +
          " <Record type=\"HKCategoryTypeIdentifierSleepAnalysis\" sourceName=\"Anna's iPhone\" "
          "startDate=\"2024-03-10 23:00:00 +0000\" endDate=\"2024-03-11 06:00:00 +0000\" "
          "value=\"HKCategoryValueSleepAnalysisAsleepCore\"/>\n" +
          "</HealthData>\n");
  const auto database = importAndOpen(exportPath, dir.file("health.db"));
  ASSERT_TRUE(database);
  const auto memory = testing::readIntoMemory(exportPath);
  for (int day = 0; day < 25; ++day) {
    const Date noon = testing::utcDate(2024, 2, 28, 12).addingTimeInterval(day * 86400.0);
    const auto answer = database->samples("HKCategoryTypeIdentifierSleepAnalysis",
                                          noon.addingTimeInterval(-86400), noon);
    EXPECT_EQ(valuesOf(answer), valuesOf(memory->samples("HKCategoryTypeIdentifierSleepAnalysis",
                                                         noon.addingTimeInterval(-86400), noon)));
    EXPECT_EQ(answer.size(), day >= 3 && day <= 21 ? (day == 12 ? 2u : 1u) : 0u) << day;
  }
}

TEST(ImportedDatabaseTest, RefusesFilesThatAreNoImportDatabaseWithAClearError) {
  const testing::TempDir dir;
  const auto expectRefused = [](const std::filesystem::path& path, DatabaseErrorCode code,
                                const std::string& says) {
    const auto opened = ImportedHealthDatabase::open(path);
    ASSERT_TRUE(opened.isFailure()) << path;
    EXPECT_EQ(opened.error().domain(), kImportDatabaseErrorDomain);
    EXPECT_EQ(opened.error().code(), static_cast<std::int64_t>(code));
    EXPECT_NE(opened.error().message().find(path.string()), std::string::npos);
    EXPECT_NE(opened.error().message().find(says), std::string::npos) << opened.error().message();
  };
  expectRefused(dir.file("missing.db"), DatabaseErrorCode::cannotOpen, "no such");
  expectRefused(dir.write("text.db", std::string(5000, 'x')), DatabaseErrorCode::notADatabase,
                "not an SQLite database");
  expectRefused(kExports / "watch5-2020/export.xml", DatabaseErrorCode::notADatabase,
                "not a health database");

  // SQLite, but someone else's.
  sqlite3* other = nullptr;
  sqlite3_open(dir.file("other.db").c_str(), &other);
  sqlite3_exec(other, "CREATE TABLE meta(key, value); INSERT INTO meta VALUES('format','x');",
               nullptr, nullptr, nullptr);
  sqlite3_close(other);
  expectRefused(dir.file("other.db"), DatabaseErrorCode::notADatabase, "not a health database");

  // Ours, but from a later format.
  const auto ours = dir.file("ours.db");
  ASSERT_TRUE(importExport(kExports / "watch5-2020/export.xml", ours).isSuccess());
  sqlite3_open(ours.c_str(), &other);
  sqlite3_exec(other, "UPDATE meta SET value = '99' WHERE key = 'version';", nullptr, nullptr,
               nullptr);
  sqlite3_close(other);
  expectRefused(ours, DatabaseErrorCode::wrongVersion, "import the export again");

  // Ours, with its pages overwritten: an error or a damaged answer, never a crash.
  ASSERT_TRUE(importExport(kExports / "watch5-2020/export.xml", ours).isSuccess());
  const auto size = std::filesystem::file_size(ours);
  {
    std::fstream file(ours, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(size / 3));
    const std::string garbage(size / 3, '\x5a');
    file.write(garbage.data(), static_cast<std::streamsize>(garbage.size()));
  }
  const auto damaged = ImportedHealthDatabase::open(ours);
  if (damaged.isSuccess()) {
    (void)damaged.value()->samples("HKQuantityTypeIdentifierHeartRate", std::nullopt, std::nullopt);
  }
}

TEST(ImportedDatabaseConcurrencyTest, ManyThreadsQueryOneDatabaseAndAgree) {
  const testing::TempDir dir;
  const auto database = importAndOpen(kExports / "watch5-2020/export.xml", dir.file("h.db"));
  ASSERT_TRUE(database);
  const std::string type = "HKQuantityTypeIdentifierActiveEnergyBurned";
  const auto expected = valuesOf(database->samples(type, std::nullopt, std::nullopt));
  ASSERT_FALSE(expected.empty());
  std::atomic<int> agreed{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 10; ++i) {
        agreed += valuesOf(database->samples(type, std::nullopt, std::nullopt)) == expected;
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(agreed.load(), 40);
}

}  // namespace
}  // namespace velk::ingest
