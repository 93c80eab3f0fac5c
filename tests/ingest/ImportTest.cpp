// The import database: made from an export, replaced by the next import, kept by a failed one,
// answering as the in-memory store of the same export, and refusing files that are not one.
#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "ingest/ExportErrors.h"
#include "ingest/ExportTestSupport.h"
#include "ingest/ImportedHealthDatabase.h"
#include "support/TempDir.h"
#include "velk/ExportImport.h"

namespace velk::ingest {
namespace {

using testing::exportOf;
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

// One database through its life: made, replaced by a second import, kept by failed ones.
TEST(ImportTest, ImportingAgainReplacesTheContentAndAFailedImportKeepsTheOldOne) {
  const testing::TempDir dir;
  const auto database = dir.file("health.db");
  ASSERT_TRUE(importExport(dir.write("a.xml", exportOf(3, 11)), database).isSuccess());
  EXPECT_EQ(storedSteps(database), (std::vector<double>{11, 12, 13}));

  const auto second = importExport(dir.write("b.xml", exportOf(1, 21)), database);
  ASSERT_TRUE(second.isSuccess());
  EXPECT_EQ(second.value().samplesStored, 1u);
  EXPECT_EQ(storedSteps(database), (std::vector<double>{21}));

  // No export at all: the reader's error, the old database, and no half-made file beside it.
  const auto notAnExport =
      importExport(dir.write("notes.xml", "<notes><note>hello</note></notes>\n"), database);
  ASSERT_TRUE(notAnExport.isFailure());
  EXPECT_EQ(notAnExport.error().domain(), kExportErrorDomain);
  EXPECT_EQ(notAnExport.error().code(), static_cast<std::int64_t>(ExportErrorCode::notAnExport));
  ASSERT_TRUE(importExport(dir.file("nowhere.zip"), database).isFailure());
  // An import the host stops (its user pressed Ctrl-C) fails the same way.
  ImportOptions stopping;
  stopping.stopRequested = [] { return true; };
  const auto stopped = importExport(dir.write("c.xml", exportOf(5, 31)), database, stopping);
  ASSERT_TRUE(stopped.isFailure());
  EXPECT_EQ(stopped.error().code(), static_cast<std::int64_t>(ExportErrorCode::stopped));
  EXPECT_EQ(storedSteps(database), (std::vector<double>{21}));
  EXPECT_TRUE(testing::importFilesBeside(database).empty());
  // A first import that fails leaves no file at all where the database would be.
  ASSERT_TRUE(importExport(dir.file("notes.xml"), dir.file("first.db")).isFailure());
  EXPECT_FALSE(std::filesystem::exists(dir.file("first.db")));
  EXPECT_TRUE(testing::importFilesBeside(dir.file("first.db")).empty());

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
  EXPECT_EQ(summary.value().report.entry(ExportIssue::unreadableDate).firstLines,
            (std::vector<std::uint64_t>{5}));
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

}  // namespace
}  // namespace velk::ingest
