#include "ingest/ExportReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ingest/ExportDate.h"
#include "ingest/ExportErrors.h"
#include "ingest/ExportTestSupport.h"
#include "support/TempDir.h"
#include "velk/SourceIdentifierRule.h"

namespace velk::ingest {
namespace {

using testing::CollectingSink;
using testing::exportWith;
using testing::realExport;
using testing::stepRecord;

Result<ExportReport> readInto(const std::filesystem::path& path, CollectingSink& sink) {
  return ExportReader().read(path, sink);
}

// The forms exports write, and no other: offsets, fields and leap days are the ISO 8601 reader's
// own tests (Iso8601Test).
TEST(ExportDateTest, ReadsEveryExportFormAndRefusesWhatIsNoDate) {
  // 2024-03-10T07:30:00Z, seconds since 1970, in every form.
  for (const char* text : {"2024-03-10 08:30:00 +0100", "2024-03-10T07:30:00Z",
                           "2024-03-10 08:30:00 +01:00", "20240310083000+0100"}) {
    const auto date = ExportDate::parse(text);
    ASSERT_TRUE(date.has_value()) << text;
    EXPECT_DOUBLE_EQ(date->timeIntervalSince1970(), 1710055800.0) << text;
  }
  for (const char* text : {"2024-03-10", "2024-03-10 08:30:00", "2015110717192+0100",
                           "2024-03-10T08:30+01:00", "2024-03-10T07:30:00.25Z"}) {
    EXPECT_FALSE(ExportDate::parse(text).has_value()) << text;
  }
}

TEST(ExportSourceRuleTest, ApplesOwnSourcesPassTheSleepFilterAndAMappingFileOverridesTheRule) {
  constexpr std::string_view kWatchDevice =
      "<<HKDevice: 0x28347b340>, name:Apple Watch, manufacturer:Apple Inc., model:Watch, "
      "hardware:Watch4,2, software:7.1>";
  constexpr std::string_view kPhoneDevice =
      "<<HKDevice: 0x281307c50>, name:iPhone, manufacturer:Apple Inc., model:iPhone, "
      "hardware:iPhone12,3, software:14.0>";
  const SourceIdentifierRule rule;
  // Device sources by their names, also localised and with a no-break space, and a renamed watch
  // known by its device and OS version, pass; apps do not, even one that attaches the phone.
  const std::tuple<const char*, const char*, std::string_view, bool> sources[] = {
      {"Anna's iPhone", "", "", true},       {"User\u2019s Apple\u00a0Watch", "6.1.3", "", true},
      {"iPhone de Marie", "17.1", "", true}, {"\U0001F55B\U0001F550", "7.1", kWatchDevice, true},
      {"AutoSleep", "6.1", "", false},       {"AutoSleep", "7.4", kPhoneDevice, false},
      {"Sleep Cycle", "", "", false},        {"WatchSleeper", "14.0", "", false},
      {"com.apple.health", "1", "", false}};
  for (const auto& [name, version, device, passes] : sources) {
    EXPECT_EQ(rule.identifierFor(name, version, device).starts_with("com.apple.health"), passes)
        << name;
  }
  EXPECT_EQ(rule.identifierFor("Health", "17.0", ""), "com.apple.health");
  // Distinct names keep distinct identifiers; the rule is a pure function.
  const auto first = rule.identifierFor("\U0001F55B", "1", "");
  EXPECT_NE(first, rule.identifierFor("\U0001F51C", "1", ""));
  EXPECT_NE(rule.identifierFor("Withings", "", ""), rule.identifierFor("Withings\u00e9", "", ""));
  EXPECT_EQ(first, rule.identifierFor("\U0001F55B", "1", ""));

  // A mapping file overrides the rule for the names it holds.
  testing::TempDir dir;
  const auto mapped = SourceIdentifierRule::fromMappingFile(dir.write(
      "sources.json", R"({"AutoSleep": "com.apple.health.autosleep", "Anna's iPhone": "x.y"})"));
  ASSERT_TRUE(mapped.isSuccess());
  EXPECT_EQ(mapped.value().identifierFor("AutoSleep", "", ""), "com.apple.health.autosleep");
  EXPECT_EQ(mapped.value().identifierFor("Anna's iPhone", "", ""), "x.y");
  EXPECT_EQ(mapped.value().identifierFor("Sleep Cycle", "", ""), "export.source.sleep-cycle");

  for (const char* bad : {R"(["AutoSleep"])", R"({"AutoSleep": 3})", "{not json"}) {
    const auto refused = SourceIdentifierRule::fromMappingFile(dir.write("bad.json", bad));
    ASSERT_TRUE(refused.isFailure()) << bad;
    EXPECT_EQ(refused.error().code(),
              static_cast<std::int64_t>(ExportErrorCode::invalidSourceMapping));
  }
  EXPECT_TRUE(SourceIdentifierRule::fromMappingFile(dir.file("missing.json")).isFailure());
}

TEST(ExportReaderTest, ReadsTheRealExportsWithTheirDtdAndOddRecords) {
  CollectingSink sink;
  const auto report = readInto(realExport("watch5-2020/export.xml"), sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  EXPECT_FALSE(report.value().hasWarnings());
  EXPECT_EQ(report.value().recordsRead, 1862u);
  EXPECT_EQ(sink.countsByType(),
            "ActiveEnergyBurned=736 AppleExerciseTime=23 AppleStandHour=6 AppleStandTime=11 "
            "BasalEnergyBurned=614 DistanceWalkingRunning=72 EnvironmentalAudioExposure=11 "
            "HeadphoneAudioExposure=1 HeartRate=350 HeartRateVariabilitySDNN=1 StepCount=37");
  const auto& birth = std::get<platform::DateComponents>(sink.me.value().dateOfBirth);
  EXPECT_EQ(std::tuple(birth.year, birth.month, birth.day), std::tuple(1989, 4, 24));
  EXPECT_EQ(std::get<std::int64_t>(sink.me->biologicalSex), 1);

  // The first record: heart rate 60 count/min at 2020-04-10 03:33:34 +0200 from the watch.
  const auto& first = sink.records.front();
  EXPECT_EQ(std::tuple(first.kind, first.unit, first.value, first.sourceName),
            std::tuple(platform::SampleKind::quantity, "count/min", 60.0,
                       "User\u2019s Apple\u00a0Watch"));
  EXPECT_DOUBLE_EQ(first.start.timeIntervalSince1970(), 1586482414.0);

  CollectingSink curated;
  ASSERT_TRUE(readInto(realExport("curated-2021/sampleexport-2.xml"), curated).isSuccess());
  EXPECT_EQ(curated.countsByType(),
            "AppleStandHour=1 BodyFatPercentage=2 BodyMass=7 BodyMassIndex=2 "
            "DistanceWalkingRunning=2 EnvironmentalAudioExposure=1 Height=1 LeanBodyMass=2 "
            "StepCount=3 VO2Max=1 WalkingAsymmetryPercentage=2 WalkingDoubleSupportPercentage=3 "
            "WalkingHeartRateAverage=3 WalkingSpeed=2 WalkingStepLength=4 c=1");
  std::map<std::string, std::string> identifierOf;
  for (const auto& record : curated.records) {
    identifierOf[record.sourceName] = record.sourceBundleIdentifier;
    if (record.type == "HKCategoryTypeIdentifierAppleStandHour") {
      EXPECT_EQ(record.kind, platform::SampleKind::category);
      EXPECT_DOUBLE_EQ(record.value, 0.0);  // HKCategoryValueAppleStandHourStood
    }
  }
  EXPECT_EQ(identifierOf["Renpho"], "export.source.renpho");
  EXPECT_EQ(identifierOf["DonorTwo's iPhone"], "com.apple.health.device.donortwo-s-iphone");
  EXPECT_EQ(identifierOf["\U0001F55B\U0001F550\U0001F551\U0001F552"].rfind("com.apple.health.", 0),
            0u);
}

// The first exports (iOS 8) are read whole: compact dates, `source=`, the characteristics as a
// compact day and the platform's integer, heart rate as statistics (the average is the value),
// and events without a value, left out without a warning.
TEST(ExportReaderTest, ReadsTheFirstExportsWhole) {
  CollectingSink sink;
  const auto report = readInto(testing::sourcePath("tests/ingest/data/ios8-export.xml"), sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  EXPECT_FALSE(report.value().hasWarnings()) << report.value().warningLines().front();
  EXPECT_EQ(report.value().unreadCategoryRecordsSkipped, 1u);
  EXPECT_EQ(sink.countsByType(), "HeartRate=2 SleepAnalysis=1 StepCount=2");
  EXPECT_EQ(sink.values(), (std::vector<double>{512, 300, 1.11667, 1.5, 0}));
  EXPECT_EQ(sink.records[0].sourceName, "Jane Doe's iPhone");
  EXPECT_EQ(sink.records[4].sourceBundleIdentifier, "com.apple.health");
  ASSERT_TRUE(sink.me.has_value());
  const auto& birth = std::get<platform::DateComponents>(sink.me->dateOfBirth);
  EXPECT_EQ(std::tuple(birth.year, birth.month, birth.day), std::tuple(1988, 10, 29));
  EXPECT_EQ(std::get<std::int64_t>(sink.me->biologicalSex), 2);
}

TEST(ExportReaderTest, SurvivesTheKnownKindsOfBrokenExports) {
  testing::TempDir dir;
  std::string text =
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?><!-- exported -->\n"  // 1
      "<!DOCTYPE HealthData [\n"                                                   // 2
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
      testing::sleepRecord("AsleepREM", "Health", "2024-03-10 00:30:00 +0100",
                           "2024-03-10 06:30:00 +0100",                                   // 14
                           "  <MetadataEntry key=\"HKWasUserEntered\" value=\"1\"/>\n" +  // 15
                               stepRecord(40)) +     // 16: nested; 17 closes the sleep record
      stepRecord(50, "2030-01-01 08:00:00 +0100") +  // 18: wrong clock
      " <Record type=\"HKQuantityTypeIdentifierHeartRate\" sourceName=\"W\" unit=\"count/min\" "
      "startDate=\"2024-03-10 08:30:00 +0100\" endDate=\"2024-03-10 08:30:00 +0100\" "
      "value=\"high\"/>\n"  // 19
      " <Correlation type=\"HKCorrelationTypeIdentifierBloodPressure\" sourceName=\"Cuff\" "
      "startDate=\"2024-03-10 08:30:00 +0100\" endDate=\"2024-03-10 08:30:00 +0100\">\n" +  // 20
      " " +
      stepRecord(60) +       // 21: a child, written at top level too
      " </Correlation>\n" +  // 22
      stepRecord(60);        // 23
  for (const char* stage : {"InBed", "AsleepUnspecified", "Asleep", "Awake", "AsleepCore",
                            "AsleepDeep", "AsleepREM", "Dreaming"}) {  // 24-31
    text += testing::sleepRecord(stage);
  }
  text +=
      " <Record type=\"HKCategoryTypeIdentifierHighHeartRateEvent\" sourceName=\"W\" "
      "startDate=\"2024-03-10 08:30:00 +0100\" endDate=\"2024-03-10 08:30:00 +0100\"/>\n"  // 32
      "</HealthData>\n";
  CollectingSink sink;
  const auto report = readInto(dir.write("broken.xml", text), sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  const auto& r = report.value();

  // In end-tag order: the nested record closes before the sleep record that holds it. Every
  // sleep stage name maps to its value but the unknown "Dreaming".
  EXPECT_EQ(sink.values(), (std::vector<double>{10, 20, 30, 40, 5, 50, 60, 0, 1, 1, 2, 3, 4, 5}));
  EXPECT_EQ(r.recordsRead, 14u);
  EXPECT_EQ(r.correlationRecordsSkipped, 1u);

  EXPECT_EQ(r.count(ExportIssue::malformedXml), 1u);
  EXPECT_EQ(r.entry(ExportIssue::malformedXml).firstLines, std::vector<std::uint64_t>{12});
  EXPECT_EQ(r.count(ExportIssue::controlCharacters), 1u);
  EXPECT_EQ(sink.records[1].sourceName, "A B");
  EXPECT_EQ(r.entry(ExportIssue::nestedRecord).firstLines, std::vector<std::uint64_t>{16});
  EXPECT_EQ(r.entry(ExportIssue::dateAfterExport).firstLines, std::vector<std::uint64_t>{18});
  EXPECT_EQ(r.entry(ExportIssue::nonNumericValue).firstLines, std::vector<std::uint64_t>{19});
  EXPECT_EQ(r.entry(ExportIssue::unknownCategoryValue).firstLines, std::vector<std::uint64_t>{31});
  EXPECT_EQ(r.warningLines().size(), 6u);
  // A value at fault is named with its type; a category record that no summary reads is left
  // out without a warning, since nothing reported is lost.
  using ::testing::Contains;
  using ::testing::HasSubstr;
  EXPECT_THAT(r.warningLines(), Contains(HasSubstr("HKQuantityTypeIdentifierHeartRate \"high\"")));
  EXPECT_THAT(r.warningLines(), Contains(HasSubstr("HKCategoryTypeIdentifierSleepAnalysis "
                                                   "\"HKCategoryValueSleepAnalysisDreaming\"")));
  EXPECT_THAT(r.warningLines(), ::testing::Not(Contains(HasSubstr("HighHeartRateEvent"))));
  EXPECT_EQ(r.unreadCategoryRecordsSkipped, 1u);

  EXPECT_EQ(sink.records[4].wasUserEntered, true);  // the sleep record
  EXPECT_FALSE(sink.records[3].wasUserEntered.has_value());

  ASSERT_TRUE(sink.me.has_value());
  EXPECT_EQ(std::get<platform::DateComponents>(sink.me->dateOfBirth), platform::DateComponents{});
  EXPECT_EQ(std::get<std::int64_t>(sink.me->biologicalSex), 2);
}

// What the bytes of a line cannot show: characters written as references, damage between two
// whole records, and elements nested deeper than any call stack.
TEST(ExportReaderTest, ReadsValuesAsXmlDefinesThemAndDamageWhereItLies) {
  testing::TempDir dir;
  const auto record = [](const std::string& name, int steps) {
    return testing::namedRecord(name, std::to_string(steps));
  };
  const auto text = exportWith(                              // 1-3
      record("Ann&#8217;s&#160;&lt;Phone&gt;", 1) +          // 4
      record("Tab\tLine&#10;Feed\r\nEnd", 2) +               // 5-6
      record("Bell&#7;", 3) +                                // 7
      " <<broken\n" +                                        // 8
      record("After", 5) +                                   // 9
      " <Nest>" + testing::repeated("<a>", 200000) + "\n" +  // 10: never closed
      record("Last", 6) +                                    // 11
      stepRecord(7, "2024-03-10 08:30:00 -0500"));           // 12: same day, other zone
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
  EXPECT_EQ(r.entry(ExportIssue::malformedXml).firstLines, (std::vector<std::uint64_t>{8, 12}));
}

TEST(ExportReaderTest, FindsTheExportInAZipByItsRootAndRefusesFilesThatAreNoExport) {
  testing::TempDir dir;
  const auto path = dir.file("export.zip");
  const std::string cda = "<?xml version=\"1.0\"?>\n<ClinicalDocument><Record/></ClinicalDocument>";
  ASSERT_TRUE(testing::writeZip(
      path, {{"apple_health_export/export_cda.xml", cda},
             {"apple_health_export/workout-routes/route.xml", "<?xml version=\"1.0\"?>\n<gpx/>"},
             {"apple_health_export/\u5bfc\u51fa.xml", exportWith(stepRecord(7))}}));
  auto source = ExportSource::open(path);
  ASSERT_TRUE(source.isSuccess()) << source.error();
  EXPECT_NE(source.value()->description().find("\u5bfc\u51fa.xml"), std::string::npos);
  CollectingSink sink;
  ASSERT_TRUE(ExportReader().read(*source.value(), sink).isSuccess());
  EXPECT_EQ(sink.values(), std::vector<double>{7});

  // Without the export, the archive is refused.
  ASSERT_TRUE(
      testing::writeZip(dir.file("empty.zip"), {{"apple_health_export/export_cda.xml", cda}}));
  const auto refused = readInto(dir.file("empty.zip"), sink);
  ASSERT_TRUE(refused.isFailure());
  EXPECT_EQ(refused.error().code(), static_cast<std::int64_t>(ExportErrorCode::noExportInArchive));

  for (const auto& [name, text] : std::vector<std::pair<std::string, std::string>>{
           {"other.xml", "<?xml version=\"1.0\"?>\n<!-- c -->\n<gpx><Record/></gpx>"},
           {"text.csv", "date,steps\n2024-03-10,100\n"},
           {"empty.xml", ""}}) {
    const auto result = readInto(dir.write(name, text), sink);
    ASSERT_TRUE(result.isFailure()) << name;
    EXPECT_EQ(result.error().code(), static_cast<std::int64_t>(ExportErrorCode::notAnExport));
  }
  EXPECT_EQ(sink.records.size(), 1u);
  const auto missing = readInto(dir.file("missing.zip"), sink);
  ASSERT_TRUE(missing.isFailure());
  EXPECT_EQ(missing.error().code(), static_cast<std::int64_t>(ExportErrorCode::cannotOpen));
}

// An export of a few thousand records with some damage spread through it, so that small parts
// cut it in many places, also next to the damage: parallel parts give what one thread gives.
TEST(ExportReaderConcurrencyTest, ParallelSmallPartsGiveWhatOneThreadGives) {
  std::string body =
      " <Me HKCharacteristicTypeIdentifierDateOfBirth=\"1990-01-02\" "
      "HKCharacteristicTypeIdentifierBiologicalSex=\"HKBiologicalSexOther\"/>\n";
  for (int i = 0; i < 3000; ++i) {
    if (i % 97 == 0) {
      body +=
          " <Record type=\"HKQuantityTypeIdentifierStepCount\" sourceName=\"Bad\" a b=\"1\"/>\n";
    } else if (i % 89 == 0) {
      body +=
          " <Correlation type=\"HKCorrelationTypeIdentifierFood\" sourceName=\"App\" "
          "startDate=\"2024-03-10 08:30:00 +0100\" endDate=\"2024-03-10 08:30:00 +0100\">\n " +
          stepRecord(-i) + " </Correlation>\n";
    } else if (i % 50 == 0) {
      body += testing::sleepRecord("AsleepDeep", "Watch", "2024-03-10 00:30:00 +0100",
                                   "2024-03-10 06:30:00 +0100",
                                   "  <MetadataEntry key=\"HKWasUserEntered\" value=\"0\"/>\n");
    } else {
      body += stepRecord(i);
    }
  }
  testing::TempDir dir;
  const auto path = dir.write("mixed.xml", exportWith(body));

  const auto key = [](const platform::SampleRecord& r) {
    return std::tuple(r.type, r.value, r.start, r.wasUserEntered, r.sourceBundleIdentifier);
  };
  CollectingSink expected;
  const auto expectedReport = ExportReader({.sources = {}, .threads = 1}).read(path, expected);
  ASSERT_TRUE(expectedReport.isSuccess());
  ASSERT_EQ(expected.records.size(), 3000u - 31u - 33u);
  EXPECT_EQ(expectedReport.value().count(ExportIssue::malformedXml), 31u);
  EXPECT_EQ(expectedReport.value().correlationRecordsSkipped, 33u);

  for (const std::size_t chunkBytes : {std::size_t{300}, std::size_t{4096}, std::size_t{65536}}) {
    CollectingSink actual;
    const auto report =
        ExportReader({.sources = {}, .threads = 2, .chunkBytes = chunkBytes}).read(path, actual);
    ASSERT_TRUE(report.isSuccess());
    ASSERT_EQ(actual.records.size(), expected.records.size()) << chunkBytes;
    for (std::size_t i = 0; i < actual.records.size(); ++i) {
      ASSERT_EQ(key(actual.records[i]), key(expected.records[i]))
          << "record " << i << " with parts of " << chunkBytes << " bytes";
    }
    EXPECT_EQ(report.value().warningLines(), expectedReport.value().warningLines());
    ASSERT_TRUE(actual.me.has_value());
    EXPECT_EQ(std::get<std::int64_t>(actual.me->biologicalSex), 3);
  }
}

}  // namespace
}  // namespace velk::ingest
