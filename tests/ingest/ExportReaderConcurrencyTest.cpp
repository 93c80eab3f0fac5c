#include <gtest/gtest.h>

#include "ingest/ExportTestSupport.h"
#include "support/TempDir.h"
#include "velk/ingest/ExportReader.h"

namespace velk::ingest {
namespace {

using testing::CollectingSink;

// An export of a few thousand records with some damage spread through it, so that small parts
// cut it in many places, also next to the damage.
std::string mixedExport() {
  std::string text = testing::exportHead();
  text +=
      " <Me HKCharacteristicTypeIdentifierDateOfBirth=\"1990-01-02\" "
      "HKCharacteristicTypeIdentifierBiologicalSex=\"HKBiologicalSexOther\"/>\n";
  for (int i = 0; i < 3000; ++i) {
    if (i % 97 == 0) {
      text +=
          " <Record type=\"HKQuantityTypeIdentifierStepCount\" sourceName=\"Bad\" a b=\"1\"/>\n";
    } else if (i % 89 == 0) {
      text +=
          " <Correlation type=\"HKCorrelationTypeIdentifierFood\" sourceName=\"App\" "
          "startDate=\"2024-03-10 08:30:00 +0100\" endDate=\"2024-03-10 08:30:00 +0100\">\n"
          " " +
          testing::stepRecord(-i) + " </Correlation>\n";
    } else if (i % 50 == 0) {
      text +=
          " <Record type=\"HKCategoryTypeIdentifierSleepAnalysis\" sourceName=\"Watch\" "
          "startDate=\"2024-03-10 00:30:00 +0100\" endDate=\"2024-03-10 06:30:00 +0100\" "
          "value=\"HKCategoryValueSleepAnalysisAsleepDeep\">\n"
          "  <MetadataEntry key=\"HKWasUserEntered\" value=\"0\"/>\n"
          " </Record>\n";
    } else {
      text += testing::stepRecord(i);
    }
  }
  return text + "</HealthData>\n";
}

TEST(ExportReaderConcurrencyTest, ParallelSmallPartsGiveWhatOneThreadGives) {
  testing::TempDir dir;
  const auto path = dir.write("mixed.xml", mixedExport());

  ExportReadOptions serial;
  serial.threads = 1;
  CollectingSink expected;
  const auto expectedReport = ExportReader(serial).read(path, expected);
  ASSERT_TRUE(expectedReport.isSuccess());
  ASSERT_EQ(expected.records.size(), 3000u - 31u - 33u);
  EXPECT_EQ(expectedReport.value().count(ExportIssue::malformedXml), 31u);
  EXPECT_EQ(expectedReport.value().correlationRecordsSkipped, 33u);

  for (const std::size_t chunkBytes : {std::size_t{300}, std::size_t{4096}, std::size_t{65536}}) {
    ExportReadOptions parallel;
    parallel.threads = 2;
    parallel.chunkBytes = chunkBytes;
    CollectingSink actual;
    const auto report = ExportReader(parallel).read(path, actual);
    ASSERT_TRUE(report.isSuccess());
    ASSERT_EQ(actual.records.size(), expected.records.size()) << chunkBytes;
    for (std::size_t i = 0; i < actual.records.size(); ++i) {
      const auto& a = actual.records[i];
      const auto& e = expected.records[i];
      ASSERT_TRUE(a.type == e.type && a.value == e.value && a.start == e.start &&
                  a.wasUserEntered == e.wasUserEntered &&
                  a.sourceBundleIdentifier == e.sourceBundleIdentifier)
          << "record " << i << " with parts of " << chunkBytes << " bytes";
    }
    EXPECT_EQ(report.value().warningLines(), expectedReport.value().warningLines());
    ASSERT_TRUE(actual.me.has_value());
    EXPECT_EQ(std::get<std::int64_t>(actual.me->biologicalSex), 3);
  }
}

}  // namespace
}  // namespace velk::ingest
