// Dates and numbers at the edges: samples long before 2001 and after 2100, sub-second and
// zero-length samples, numbers that are not finite, and day windows on days with a clock change
// in zones that shift by an hour, by half an hour, north and south of the equator.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "healthstore/VelkPredicateBuilder.h"
#include "ingest/ExportReader.h"
#include "ingest/ExportTestSupport.h"
#include "ingest/StoreFile.h"
#include "support/TestDevice.h"

namespace velk::ingest {
namespace {

using testing::utcDate;

std::string sample(const std::string& start, const std::string& end, const std::string& value) {
  return R"({"type": "HKQuantityTypeIdentifierStepCount", "unit": "count", "start": ")" + start +
         R"(", "end": ")" + end + R"(", "value": )" + value + "}";
}

TEST(EdgeValuesTest, StoreFilesKeepFarDatesAndFractionsAndRefuseNumbersBeyondADouble) {
  const auto contents = StoreFile::parse(
      R"({"samples": [)" + sample("1900-01-01T00:00:00Z", "1900-01-01T00:00:00Z", "1") + "," +
          sample("2150-06-01T12:00:00.250+05:30", "2150-06-01T12:00:00.750+05:30", "2") + "," +
          sample("2000-12-31T23:59:59.5Z", "2001-01-01T00:00:00.5Z", "5e-324") + "]}",
      "edge.json");
  ASSERT_TRUE(contents.isSuccess()) << contents.error();
  const auto& samples = contents.value().samples;
  ASSERT_EQ(samples.size(), 3u);
  EXPECT_EQ(samples[0].start, utcDate(1900, 1, 1));
  EXPECT_EQ(samples[0].end, samples[0].start);
  EXPECT_EQ(samples[1].start, utcDate(2150, 6, 1, 6, 30, 0.25));
  EXPECT_DOUBLE_EQ(samples[2].start.timeIntervalSinceReferenceDate(), -0.5);
  EXPECT_GT(samples[2].value, 0.0);

  // Found again by a query over the day, zero-length and all.
  const auto found = StoreFile::makeDatabase(contents.value())
                         ->samples("HKQuantityTypeIdentifierStepCount", utcDate(1899, 12, 31),
                                   utcDate(1900, 1, 2));
  EXPECT_EQ(found.value().size(), 1u);

  // Numbers beyond a double, or that no measurement of the type can have (the bound's cases are
  // the exports' below), are refused whole.
  for (const char* value : {"1e999", "-1e400", "NaN", "Infinity", "\"inf\"", "1e20"}) {
    SCOPED_TRACE(value);
    const auto refused = StoreFile::parse(
        R"({"samples": [)" + sample("2024-01-01T00:00:00Z", "2024-01-01T00:00:00Z", value) + "]}",
        "edge.json");
    ASSERT_TRUE(refused.isFailure());
    EXPECT_THAT(refused.error().message(), ::testing::HasSubstr("edge.json"));
    const std::string_view text(value);
    if (text == "1e999") {
      EXPECT_THAT(refused.error().message(), ::testing::HasSubstr("overflow"));
    } else if (text == "1e20") {
      EXPECT_THAT(refused.error().message(),
                  ::testing::HasSubstr("edge.json: samples[0].value: no measurement of "
                                       "HKQuantityTypeIdentifierStepCount can be"));
    }
  }
}

TEST(EdgeValuesTest, ExportsReadFarDatesAndWarnAboutNumbersThatAreNotFinite) {
  std::string body =
      testing::namedRecord("S", "1", "1900-01-01 00:00:00 +0000", "1900-01-01 00:00:00 +0000") +
      testing::namedRecord("S", "2", "2150-06-01 12:00:00 +0530", "2150-06-01 12:00:00 +0530");
  for (const char* value : {"nan", "NaN", "inf", "-inf", "1e999", "-1e400", "0x10"}) {
    body +=
        testing::namedRecord("S", value, "2024-01-01 00:00:00 +0000", "2024-01-01 00:01:00 +0000");
  }
  // Whole numbers that no integer holds are no category values (the fuzzer's find: converting
  // 6.7e81 to an integer was undefined).
  for (const char* value : {"6.7e81", "-9.3e18", "1e300"}) {
    body +=
        " <Record type=\"HKCategoryTypeIdentifierSleepAnalysis\" sourceName=\"S\" "
        "startDate=\"2024-01-01 00:00:00 +0000\" endDate=\"2024-01-01 00:01:00 +0000\" "
        "value=\"" +
        std::string(value) + "\"/>\n";
  }
  testing::TempDir dir;
  testing::CollectingSink sink;
  const auto report = ExportReader().read(dir.write("edge.xml", testing::exportWith(body)), sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  // The records after the export date are read, with a warning of their own; no other value
  // reaches a record.
  ASSERT_EQ(sink.values(), (std::vector<double>{1, 2}));
  EXPECT_EQ(sink.records[0].start, utcDate(1900, 1, 1));
  EXPECT_EQ(sink.records[1].start, utcDate(2150, 6, 1, 6, 30));
  EXPECT_EQ(report.value().count(ExportIssue::nonNumericValue), 7u);
  EXPECT_EQ(report.value().count(ExportIssue::unknownCategoryValue), 3u);
}

// Records the store could never hold, or whose meaning is unclear, are skipped with a warning
// each, never read as they stand: an end before the start, a leap second, an attribute twice.
TEST(EdgeValuesTest, RecordsEndingBeforeTheyStartOrRepeatingAnAttributeAreSkippedWithAWarning) {
  const auto record = [](const std::string& attributes, const std::string& start,
                         const std::string& end, const std::string& value) {
    return " <Record type=\"HKQuantityTypeIdentifierStepCount\" " + attributes +
           "sourceName=\"S\" unit=\"count\" startDate=\"2024-01-01 " + start +
           " +0000\" endDate=\"2024-01-01 " + end + " +0000\" value=\"" + value + "\"/>\n";
  };
  const std::string body =
      record("", "08:00:00", "08:00:00", "1") + record("", "09:00:00", "08:00:00", "100") +
      record("", "23:59:60", "23:59:60", "7") +
      record("type=\"HKQuantityTypeIdentifierHeartRate\" ", "10:00:00", "10:10:00", "30");
  testing::TempDir dir;
  testing::CollectingSink sink;
  const auto report = ExportReader().read(dir.write("odd.xml", testing::exportWith(body)), sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  EXPECT_EQ(sink.values(), std::vector<double>{1});
  EXPECT_EQ(report.value().count(ExportIssue::endBeforeStart), 1u);
  EXPECT_EQ(report.value().entry(ExportIssue::unreadableDate).details.at(0).text,
            "2024-01-01 23:59:60 +0000");
  EXPECT_EQ(report.value().count(ExportIssue::repeatedAttribute), 1u);
  EXPECT_EQ(report.value().warningLines().size(), 3u);
}

// A sample holds at most a billion of its type's unit, whatever unit it is written in, so that no
// sum of a day's samples can leave the 64-bit range: exports skip the others with a warning (an
// import passes the reader's report on, as ImportTest shows), and store files are refused (with the
// other numbers they refuse, above).
TEST(EdgeValuesTest, ValuesNoMeasurementCanHaveAreRefusedWhereDataEnters) {
  const auto record = [](const std::string& type, const std::string& unit,
                         const std::string& value) {
    return " <Record type=\"HKQuantityTypeIdentifier" + type + "\" sourceName=\"S\" unit=\"" +
           unit + "\" startDate=\"2024-01-01 00:00:00 +0000\" " +
           "endDate=\"2024-01-01 00:01:00 +0000\" value=\"" + value + "\"/>\n";
  };
  const std::string body =
      record("StepCount", "count", "1e9") + record("StepCount", "count", "-1e9") +
      record("HeartRate", "count/s", "1.6e7") + record("BodyMass", "g", "9e11") +
      record("StepCount", "count", "9.3e18") + record("StepCount", "count", "1.0000001e9") +
      record("StepCount", "count", "-5e18") + record("HeartRate", "count/min", "1e300") +
      record("HeartRate", "count/s", "1.7e7") + record("ActiveEnergyBurned", "kJ", "5e9") +
      record("BodyMass", "g", "2e12");
  testing::TempDir dir;
  testing::CollectingSink sink;
  const auto report = ExportReader().read(dir.write("huge.xml", testing::exportWith(body)), sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  EXPECT_EQ(sink.values(), (std::vector<double>{1e9, -1e9, 1.6e7, 9e11}));
  EXPECT_EQ(report.value().count(ExportIssue::impossibleValue), 7u);
  EXPECT_EQ(report.value().entry(ExportIssue::impossibleValue).details.at(0).text, "9.3e18");
}

struct ClockChange {
  const char* zone;
  int year, month, day;
  // From midnight to 23:59:59 of that local day, plus a second. On the day that Sao Paulo set its
  // clocks back at midnight, the last hour is repeated and 23:59:59 reads as its first pass.
  double dayHours;
};

TEST(EdgeValuesTest, DayWindowsFollowTheWallClockOnDaysWithClockChanges) {
  const ClockChange changes[] = {
      {"Europe/Berlin", 2024, 3, 31, 23},         {"Europe/Berlin", 2024, 10, 27, 25},
      {"America/Sao_Paulo", 2018, 11, 4, 23},     {"America/Sao_Paulo", 2019, 2, 16, 24},
      {"Australia/Adelaide", 2024, 10, 6, 23},    {"Australia/Adelaide", 2024, 4, 7, 25},
      {"Australia/Lord_Howe", 2024, 10, 6, 23.5}, {"Australia/Lord_Howe", 2024, 4, 7, 24.5},
      {"Asia/Kolkata", 2024, 3, 31, 24},
  };
  for (const auto& change : changes) {
    SCOPED_TRACE(std::string(change.zone) + " " + std::to_string(change.month) + "/" +
                 std::to_string(change.day));
    testing::TestDevice device({.timeZone = change.zone});
    const auto noon = device.localDate(change.year, change.month, change.day, 12);
    const VelkPredicateBuilder builder;
    const auto midnight = builder.getDate(noon, 0, 0, 0);
    const auto lastSecond = builder.getDate(noon, 23, 59, 59);
    ASSERT_TRUE(midnight && lastSecond);
    EXPECT_DOUBLE_EQ(lastSecond->timeIntervalSince(*midnight), change.dayHours * 3600 - 1);

    // Every wall time of the day makes a moment, those in a gap too.
    for (int minute = 0; minute < 24 * 60; minute += 15) {
      EXPECT_TRUE(builder.getDate(noon, minute / 60, minute % 60, 0).has_value()) << minute;
    }
  }
  testing::TestDevice kolkata({.timeZone = "Asia/Kolkata"});
  EXPECT_EQ(VelkPredicateBuilder().getDate(utcDate(2024, 3, 31, 12), 0, 0, 0),
            utcDate(2024, 3, 30, 18, 30));
}

}  // namespace
}  // namespace velk::ingest
