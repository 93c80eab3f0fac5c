#include "velk/ingest/ExportReader.h"

#include <gtest/gtest.h>
#include <zip.h>

#include <set>

#include "ingest/ExportTestSupport.h"
#include "support/TempDir.h"
#include "velk/ingest/ExportErrors.h"

namespace velk::ingest {
namespace {

using testing::CollectingSink;
using testing::exportHead;
using testing::stepRecord;

// The real exports live beside the repository (see their README).
const std::filesystem::path kExports = testing::sourcePath("../shared/testdata/exports");

Result<ExportReport> readInto(const std::filesystem::path& path, CollectingSink& sink) {
  return ExportReader().read(path, sink);
}

TEST(ExportReaderTest, ReadsTheWatchExportCompletely) {
  CollectingSink sink;
  const auto report = readInto(kExports / "watch5-2020/export.xml", sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  EXPECT_FALSE(report.value().hasWarnings());
  EXPECT_EQ(report.value().recordsRead, 1862u);
  const std::map<std::string, int> expected = {
      {"HKQuantityTypeIdentifierHeartRate", 350},
      {"HKQuantityTypeIdentifierStepCount", 37},
      {"HKQuantityTypeIdentifierDistanceWalkingRunning", 72},
      {"HKQuantityTypeIdentifierBasalEnergyBurned", 614},
      {"HKQuantityTypeIdentifierActiveEnergyBurned", 736},
      {"HKQuantityTypeIdentifierAppleExerciseTime", 23},
      {"HKQuantityTypeIdentifierEnvironmentalAudioExposure", 11},
      {"HKQuantityTypeIdentifierHeadphoneAudioExposure", 1},
      {"HKQuantityTypeIdentifierAppleStandTime", 11},
      {"HKCategoryTypeIdentifierAppleStandHour", 6},
      {"HKQuantityTypeIdentifierHeartRateVariabilitySDNN", 1}};
  EXPECT_EQ(sink.countsByType(), expected);

  ASSERT_TRUE(sink.me.has_value());
  const auto& birth = std::get<platform::DateComponents>(sink.me->dateOfBirth);
  EXPECT_EQ(birth.year, 1989);
  EXPECT_EQ(birth.month, 4);
  EXPECT_EQ(birth.day, 24);
  EXPECT_EQ(std::get<std::int64_t>(sink.me->biologicalSex), 1);

  // The first record: heart rate 60 count/min at 2020-04-10 03:33:34 +0200 from the watch.
  const auto& first = sink.records.front();
  EXPECT_EQ(first.kind, platform::SampleKind::quantity);
  EXPECT_EQ(first.unit, "count/min");
  EXPECT_DOUBLE_EQ(first.value, 60.0);
  EXPECT_DOUBLE_EQ(first.start.timeIntervalSince1970(), 1586482414.0);
  EXPECT_EQ(first.sourceName, "User\u2019s Apple\u00a0Watch");

  // Every source of this export is the watch or the phone: all pass the sleep filter.
  std::set<std::string> identifiers;
  for (const auto& record : sink.records) {
    identifiers.insert(record.sourceBundleIdentifier);
  }
  ASSERT_EQ(identifiers.size(), 2u);
  for (const auto& identifier : identifiers) {
    EXPECT_EQ(identifier.rfind("com.apple.health.device.", 0), 0u) << identifier;
  }
}

TEST(ExportReaderTest, ReadsTheCuratedExportsWithTheirDtdAndOddRecords) {
  CollectingSink sink;
  const auto report = readInto(kExports / "curated-2021/sampleexport-2.xml", sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  EXPECT_EQ(sink.records.size(), 37u);
  EXPECT_EQ(sink.countsByType()["HKQuantityTypeIdentifierBodyMass"], 7);
  EXPECT_EQ(sink.countsByType()["c"], 1);
  std::map<std::string, std::string> identifierOf;
  for (const auto& record : sink.records) {
    identifierOf[record.sourceName] = record.sourceBundleIdentifier;
    if (record.type == "HKCategoryTypeIdentifierAppleStandHour") {
      EXPECT_EQ(record.kind, platform::SampleKind::category);
      EXPECT_DOUBLE_EQ(record.value, 0.0);  // HKCategoryValueAppleStandHourStood
    }
  }
  EXPECT_EQ(identifierOf["Renpho"], "export.source.renpho");
  EXPECT_EQ(identifierOf["MyFitnessPal"], "export.source.myfitnesspal");
  EXPECT_EQ(identifierOf["DonorTwo's iPhone"], "com.apple.health.device.donortwo-s-iphone");
  EXPECT_EQ(identifierOf["\U0001F55B\U0001F550\U0001F551\U0001F552"].rfind("com.apple.health.", 0),
            0u);
  EXPECT_EQ(std::get<std::int64_t>(sink.me->biologicalSex), 2);

  CollectingSink other;
  ASSERT_TRUE(readInto(kExports / "curated-2021/sampleexport.xml", other).isSuccess());
  EXPECT_EQ(other.records.size(), 5u);
}

TEST(ExportReaderTest, SurvivesTheKnownKindsOfBrokenExports) {
  testing::TempDir dir;
  const std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"                   // 1
      "<!DOCTYPE HealthData [\n"                                       // 2
      "<!ATTLIST Me\n"                                                 // 3: never closed
      "  HKCharacteristicTypeIdentifierDateOfBirth CDATA #REQUIRED\n"  // 4
      "> >\n"                                                          // 5: stray '>'
      "]>\n"                                                           // 6
      "<HealthData locale=\"de_DE\">\n"                                // 7
      " <ExportDate value=\"2024-03-20 10:00:00 +0100\"/>\n"           // 8
      " <Me HKCharacteristicTypeIdentifierDateOfBirth=\"\" "
      "HKCharacteristicTypeIdentifierBiologicalSex=\"HKBiologicalSexMale\"/>\n" +  // 9
      stepRecord(10) +                                                             // 10
      " <Record type=\"HKQuantityTypeIdentifierStepCount\" sourceName=\"A\vB\" unit=\"count\" "
      "startDate=\"20151107171924+0100\" endDate=\"20151107172924+0100\" value=\"20\"/>\n"  // 11
      " <Record type=\"HKQuantityTypeIdentifierBodyMass\" sourceName=\"Scale\" unit=\"lb\" "
      "startDate=\"2024-03-10 08:30:00 +0100\" endDate=\"2024-03-10 08:30:00 +0100\" "
      "value=\"180\" Was User Entered=\"1\"/>\n" +  // 12: broken, lost
      stepRecord(30) +                              // 13
      " <Record type=\"HKCategoryTypeIdentifierSleepAnalysis\" sourceName=\"Health\" "
      "startDate=\"2024-03-10 00:30:00 +0100\" endDate=\"2024-03-10 06:30:00 +0100\" "
      "value=\"HKCategoryValueSleepAnalysisAsleepREM\">\n"           // 14
      "  <MetadataEntry key=\"HKWasUserEntered\" value=\"1\"/>\n" +  // 15
      stepRecord(40) +                                               // 16: nested
      " </Record>\n" +                                               // 17
      stepRecord(50, "2030-01-01 08:00:00 +0100") +                  // 18: wrong clock
      " <Record type=\"HKQuantityTypeIdentifierHeartRate\" sourceName=\"W\" unit=\"count/min\" "
      "startDate=\"2024-03-10 08:30:00 +0100\" endDate=\"2024-03-10 08:30:00 +0100\" "
      "value=\"high\"/>\n"  // 19
      " <Correlation type=\"HKCorrelationTypeIdentifierBloodPressure\" sourceName=\"Cuff\" "
      "startDate=\"2024-03-10 08:30:00 +0100\" endDate=\"2024-03-10 08:30:00 +0100\">\n" +  // 20
      " " +
      stepRecord(60) +       // 21: a child, written at top level too
      " </Correlation>\n" +  // 22
      stepRecord(60) +       // 23
      "</HealthData>\n";
  CollectingSink sink;
  const auto report = readInto(dir.write("broken.xml", text), sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  const auto& r = report.value();

  std::vector<double> values;
  for (const auto& record : sink.records) {
    values.push_back(record.value);
  }
  // In end-tag order: the nested record closes before the sleep record that holds it.
  EXPECT_EQ(values, (std::vector<double>{10, 20, 30, 40, 5, 50, 60}));
  EXPECT_EQ(r.recordsRead, 7u);
  EXPECT_EQ(r.correlationRecordsSkipped, 1u);

  EXPECT_EQ(r.count(ExportIssue::malformedXml), 1u);
  EXPECT_EQ(r.entry(ExportIssue::malformedXml).firstLines, std::vector<std::uint64_t>{12});
  EXPECT_EQ(r.count(ExportIssue::controlCharacters), 1u);
  EXPECT_EQ(sink.records[1].sourceName, "A B");
  EXPECT_DOUBLE_EQ(sink.records[1].start.timeIntervalSince1970(), 1446913164.0);
  EXPECT_EQ(r.entry(ExportIssue::nestedRecord).firstLines, std::vector<std::uint64_t>{16});
  EXPECT_EQ(r.entry(ExportIssue::dateAfterExport).firstLines, std::vector<std::uint64_t>{18});
  EXPECT_EQ(r.entry(ExportIssue::nonNumericValue).firstLines, std::vector<std::uint64_t>{19});
  EXPECT_EQ(r.warningLines().size(), 5u);

  const auto& sleep = sink.records[4];
  EXPECT_EQ(sleep.kind, platform::SampleKind::category);
  EXPECT_EQ(sleep.wasUserEntered, true);
  EXPECT_EQ(sleep.sourceBundleIdentifier, "com.apple.health");
  EXPECT_FALSE(sink.records[3].wasUserEntered.has_value());

  ASSERT_TRUE(sink.me.has_value());
  EXPECT_EQ(std::get<platform::DateComponents>(sink.me->dateOfBirth), platform::DateComponents{});
  EXPECT_EQ(std::get<std::int64_t>(sink.me->biologicalSex), 2);
}

// What the bytes of a line cannot show: characters written as references, values that are no
// UTF-8, damage between two whole records, and elements nested deeper than any call stack.
TEST(ExportReaderTest, ReadsValuesAsXmlDefinesThemAndDamageWhereItLies) {
  testing::TempDir dir;
  const auto record = [](const std::string& name, int steps) {
    return " <Record type=\"HKQuantityTypeIdentifierStepCount\" sourceName=\"" + name +
           "\" unit=\"count\" startDate=\"2024-03-10 08:30:00 +0100\" "
           "endDate=\"2024-03-10 08:30:00 +0100\" value=\"" +
           std::to_string(steps) + "\"/>\n";
  };
  std::string deep;
  for (int i = 0; i < 200000; ++i) {
    deep += "<a>";
  }
  const auto text = exportHead() +                                 // 1-3
                    record("Ann&#8217;s&#160;&lt;Phone&gt;", 1) +  // 4
                    record("Tab\tLine&#10;Feed\r\nEnd", 2) +       // 5-6
                    record("Bell&#7;", 3) +                        // 7
                    record("Latin \xE9t\xE9", 4) +                 // 8: not UTF-8, skipped
                    " <<broken\n" +                                // 9
                    record("After", 5) +                           // 10
                    " <Nest>" + deep + "\n" +                      // 11: never closed
                    record("Last", 6) +                            // 12
                    stepRecord(7, "2024-03-10 08:30:00 -0500") +   // 13: same day, other zone
                    "</HealthData>\n";
  CollectingSink sink;
  const auto report = readInto(dir.write("references.xml", text), sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  std::vector<std::string> names;
  for (const auto& one : sink.records) {
    names.push_back(one.sourceName);
  }
  EXPECT_EQ(names, (std::vector<std::string>{"Ann\u2019s\u00a0<Phone>", "Tab Line Feed End",
                                             "Bell ", "After", "Last", "Anna's iPhone"}));
  EXPECT_DOUBLE_EQ(sink.records.back().start.timeIntervalSince1970() -
                       sink.records.front().start.timeIntervalSince1970(),
                   6 * 3600.0);
  const auto& r = report.value();
  EXPECT_EQ(r.count(ExportIssue::controlCharacters), 1u);
  // The unclosed element shows where the part ends, on the last line inside it.
  EXPECT_EQ(r.entry(ExportIssue::malformedXml).firstLines, (std::vector<std::uint64_t>{8, 9, 13}));
}

TEST(ExportReaderTest, ReadsPastADoctypeWhoseSubsetNeverCloses) {
  testing::TempDir dir;
  const auto text =
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!-- exported -->\n"
      "<!DOCTYPE HealthData [\n"
      "<!ATTLIST Record type CDATA #REQUIRED\n"
      "<!ELEMENT Me EMPTY>>\n" +
      exportHead().substr(exportHead().find("<HealthData")) + stepRecord(5) + "</HealthData>\n";
  CollectingSink sink;
  const auto report = readInto(dir.write("open-subset.xml", text), sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  EXPECT_FALSE(report.value().hasWarnings());
  ASSERT_EQ(sink.records.size(), 1u);
  EXPECT_DOUBLE_EQ(sink.records[0].value, 5.0);
}

TEST(ExportReaderTest, MapsEverySleepStageName) {
  testing::TempDir dir;
  std::string text = exportHead();
  for (const char* stage : {"InBed", "AsleepUnspecified", "Asleep", "Awake", "AsleepCore",
                            "AsleepDeep", "AsleepREM", "Dreaming"}) {
    text += std::string(
                " <Record type=\"HKCategoryTypeIdentifierSleepAnalysis\" sourceName=\"S\" "
                "startDate=\"2024-03-10 00:30:00 +0100\" "
                "endDate=\"2024-03-10 06:30:00 +0100\" value=\"HKCategoryValueSleepAnalysis") +
            stage + "\"/>\n";
  }
  text += "</HealthData>\n";
  CollectingSink sink;
  const auto report = readInto(dir.write("sleep.xml", text), sink);
  ASSERT_TRUE(report.isSuccess());
  std::vector<double> values;
  for (const auto& record : sink.records) {
    values.push_back(record.value);
  }
  EXPECT_EQ(values, (std::vector<double>{0, 1, 1, 2, 3, 4, 5}));
  EXPECT_EQ(report.value().entry(ExportIssue::unknownCategoryValue).firstLines,
            std::vector<std::uint64_t>{11});
}

TEST(ExportReaderTest, ReportsAFileCutShortAndKeepsWhatCameBefore) {
  testing::TempDir dir;
  const auto text = exportHead() + stepRecord(1) + stepRecord(2) + stepRecord(3).substr(0, 40);
  CollectingSink sink;
  const auto report = readInto(dir.write("cut.xml", text), sink);
  ASSERT_TRUE(report.isSuccess());
  EXPECT_EQ(sink.records.size(), 2u);
  EXPECT_EQ(report.value().count(ExportIssue::truncated), 1u);
  EXPECT_EQ(report.value().count(ExportIssue::malformedXml), 1u);
}

void addToZip(zip_t* archive, const char* name, const std::string& text) {
  auto* source = zip_source_buffer(archive, text.data(), text.size(), 0);
  ASSERT_NE(source, nullptr);
  ASSERT_GE(zip_file_add(archive, name, source, ZIP_FL_ENC_UTF_8), 0);
}

TEST(ExportReaderTest, FindsTheExportInAZipByItsRootNotItsName) {
  testing::TempDir dir;
  const auto path = dir.file("export.zip");
  const std::string cda = "<?xml version=\"1.0\"?>\n<ClinicalDocument><Record/></ClinicalDocument>";
  const std::string other = "<?xml version=\"1.0\"?>\n<gpx/>";
  const auto xml = exportHead() + stepRecord(7) + "</HealthData>\n";
  {
    int error = 0;
    zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    ASSERT_NE(archive, nullptr);
    addToZip(archive, "apple_health_export/export_cda.xml", cda);
    addToZip(archive, "apple_health_export/workout-routes/route.xml", other);
    addToZip(archive, "apple_health_export/\u5bfc\u51fa.xml", xml);
    ASSERT_EQ(zip_close(archive), 0);
  }
  auto source = ExportSource::open(path);
  ASSERT_TRUE(source.isSuccess()) << source.error();
  EXPECT_NE(source.value()->description().find("\u5bfc\u51fa.xml"), std::string::npos);

  CollectingSink sink;
  ASSERT_TRUE(ExportReader().read(*source.value(), sink).isSuccess());
  ASSERT_EQ(sink.records.size(), 1u);
  EXPECT_DOUBLE_EQ(sink.records[0].value, 7.0);

  // Without the export, the archive is refused.
  const auto empty = dir.file("empty.zip");
  {
    int error = 0;
    zip_t* archive = zip_open(empty.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    addToZip(archive, "apple_health_export/export_cda.xml", cda);
    ASSERT_EQ(zip_close(archive), 0);
  }
  const auto refused = readInto(empty, sink);
  ASSERT_TRUE(refused.isFailure());
  EXPECT_EQ(refused.error().code(), static_cast<std::int64_t>(ExportErrorCode::noExportInArchive));
}

TEST(ExportReaderTest, RefusesFilesThatAreNoExport) {
  testing::TempDir dir;
  CollectingSink sink;
  for (const auto& [name, text] : std::vector<std::pair<std::string, std::string>>{
           {"other.xml", "<?xml version=\"1.0\"?>\n<!-- c -->\n<gpx><Record/></gpx>"},
           {"text.csv", "date,steps\n2024-03-10,100\n"},
           {"empty.xml", ""}}) {
    const auto result = readInto(dir.write(name, text), sink);
    ASSERT_TRUE(result.isFailure()) << name;
    EXPECT_EQ(result.error().code(), static_cast<std::int64_t>(ExportErrorCode::notAnExport));
    EXPECT_NE(result.error().message().find("not an Apple Health export"), std::string::npos);
  }
  EXPECT_TRUE(sink.records.empty());
  const auto missing = readInto(dir.file("missing.zip"), sink);
  ASSERT_TRUE(missing.isFailure());
  EXPECT_EQ(missing.error().code(), static_cast<std::int64_t>(ExportErrorCode::cannotOpen));
}

}  // namespace
}  // namespace velk::ingest
