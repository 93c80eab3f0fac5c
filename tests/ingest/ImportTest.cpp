#include <gtest/gtest.h>

#include "ingest/ImportTestSupport.h"
#include "support/TempDir.h"
#include "velk/ingest/ExportErrors.h"
#include "velk/ingest/ExportImport.h"
#include "velk/ingest/ImportedHealthDatabase.h"

namespace velk::ingest {
namespace {

constexpr const char* kSteps = "HKQuantityTypeIdentifierStepCount";

std::string exportOf(const std::vector<int>& steps) {
  std::string text = testing::exportHead();
  for (const int count : steps) {
    text += testing::stepRecord(count);
  }
  return text + "</HealthData>\n";
}

std::vector<double> storedSteps(const std::filesystem::path& database) {
  auto opened = ImportedHealthDatabase::open(database);
  EXPECT_TRUE(opened.isSuccess());
  std::vector<double> values;
  if (opened.isSuccess()) {
    for (const auto& sample : opened.value()->samples(kSteps, std::nullopt, std::nullopt)) {
      values.push_back(sample.value);
    }
  }
  return values;
}

// One database through its life: made, replaced by a second import, kept by failed ones.
TEST(ImportTest, ImportingAgainReplacesTheContentAndAFailedImportKeepsTheOldOne) {
  const testing::TempDir dir;
  const auto database = dir.file("health.db");
  ASSERT_TRUE(importExport(dir.write("a.xml", exportOf({11, 12, 13})), database).isSuccess());
  EXPECT_EQ(storedSteps(database), (std::vector<double>{11, 12, 13}));

  const auto second = importExport(dir.write("b.xml", exportOf({21})), database);
  ASSERT_TRUE(second.isSuccess());
  EXPECT_EQ(second.value().samplesStored, 1u);
  EXPECT_EQ(storedSteps(database), (std::vector<double>{21}));

  // No export at all: the reader's error, the old database, and no half-made file beside it.
  const auto notAnExport =
      importExport(dir.write("notes.xml", "<notes><note>hello</note></notes>\n"), database);
  ASSERT_TRUE(notAnExport.isFailure());
  EXPECT_EQ(notAnExport.error().domain(), kExportErrorDomain);
  EXPECT_EQ(notAnExport.error().code(), static_cast<std::int64_t>(ExportErrorCode::notAnExport));
  const auto missing = importExport(dir.file("nowhere.zip"), database);
  ASSERT_TRUE(missing.isFailure());
  EXPECT_EQ(storedSteps(database), (std::vector<double>{21}));
  EXPECT_FALSE(std::filesystem::exists(dir.file("health.db.importing")));

  // A leftover of an import that was killed half way is not mistaken for anything.
  dir.write("health.db.importing", "half a database");
  ASSERT_TRUE(importExport(dir.file("a.xml"), database).isSuccess());
  EXPECT_EQ(storedSteps(database), (std::vector<double>{11, 12, 13}));
  EXPECT_FALSE(std::filesystem::exists(dir.file("health.db.importing")));

  // A target that cannot be replaced (a folder) fails without touching it.
  std::filesystem::create_directory(dir.file("taken"));
  std::filesystem::create_directory(dir.file("taken/inside"));
  const auto blocked = importExport(dir.file("a.xml"), dir.file("taken"));
  ASSERT_TRUE(blocked.isFailure());
  EXPECT_EQ(blocked.error().code(), static_cast<std::int64_t>(DatabaseErrorCode::cannotReplace));
  EXPECT_TRUE(std::filesystem::is_directory(dir.file("taken/inside")));
}

TEST(ImportTest, WarningsOfTheExportAndProgressReachTheCaller) {
  const testing::TempDir dir;
  std::string text = testing::exportHead();
  text += testing::stepRecord(5);
  text += testing::stepRecord(6, "yesterday at noon");  // unreadable: reported, not stored
  text +=
      " <Record type=\"HKQuantityTypeIdentifierBodyMass\" sourceName=\"Scale\" unit=\"furlong\" "
      "startDate=\"2024-03-10 08:30:00 +0100\" endDate=\"2024-03-10 08:30:00 +0100\" "
      "value=\"70\"/>\n";
  text += testing::stepRecord(7);
  text += "</HealthData>\n";
  const auto exportPath = dir.write("export.xml", text);

  std::vector<ImportProgress> reports;
  const auto summary = importExport(exportPath, dir.file("h.db"), {},
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

}  // namespace
}  // namespace velk::ingest
