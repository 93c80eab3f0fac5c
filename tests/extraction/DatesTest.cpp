#include <gtest/gtest.h>

#include <string>

#include "extraction/ExtractionLastDateStorage.h"
#include "extraction/VelkDateFormatter.h"
#include "support/TestDevice.h"
#include "velk/VelkDataType.h"

namespace velk {
namespace {

using testing::TestDevice;
using testing::utcDate;

TEST(VelkDataTypeTest, RawValuesAreTheStoredKeysAndNothingElseParses) {
  EXPECT_EQ(rawValue(VelkDataType::sleepSummary), "velk_last_sleep_date_extraction");
  EXPECT_EQ(rawValue(VelkDataType::physicalSummary), "velk_last_physical_date_extraction");
  EXPECT_EQ(rawValue(VelkDataType::bodySummary), "velk_last_body_date_extraction");
  for (const VelkDataType kind : allVelkDataTypes) {
    EXPECT_EQ(velkDataTypeFromRawValue(rawValue(kind)), kind);
  }
  for (const char* near : {"sleepSummary", "velk_last_sleep_date_extraction ",
                           "VELK_LAST_BODY_DATE_EXTRACTION", "velk_last_date_extraction", ""}) {
    EXPECT_EQ(velkDataTypeFromRawValue(near), std::nullopt) << near;
  }
}

TEST(ExtractionLastDateStorageTest, EachKindKeepsTheLastDayAskedFor) {
  TestDevice device;
  const ExtractionLastDateStorage storage;
  storage.storeLastDate(utcDate(2024, 2, 1, 9, 15), VelkDataType::physicalSummary);
  storage.storeLastDate(utcDate(2024, 1, 5, 7), VelkDataType::physicalSummary);
  storage.storeLastDate(utcDate(2023, 12, 24), VelkDataType::bodySummary);
  // An older day replaces a newer one: the store keeps the last request, not the latest day.
  EXPECT_EQ(storage.readLastDate(VelkDataType::physicalSummary), utcDate(2024, 1, 5, 7));
  EXPECT_EQ(storage.readLastDate(VelkDataType::bodySummary), utcDate(2023, 12, 24));
  EXPECT_EQ(storage.readLastDate(VelkDataType::sleepSummary), std::nullopt);

  // Stored as dates under the published keys, where a second storage (and the host) finds them.
  EXPECT_EQ(device.userDefaults().date("velk_last_physical_date_extraction"),
            utcDate(2024, 1, 5, 7));
  const ExtractionLastDateStorage another;
  EXPECT_EQ(another.readLastDate(VelkDataType::bodySummary), utcDate(2023, 12, 24));
}

TEST(VelkDateFormatterTest, UTCAndLocalFormattersDifferOnlyByZone) {
  TestDevice device({.timeZone = "Etc/GMT-2"});  // UTC+02:00 (the Etc sign is inverted)
  const VelkDateFormatter formatter;
  const Date moment = device.localDate(2024, 3, 10, 1, 30, 0.25);
  ASSERT_EQ(moment, utcDate(2024, 3, 9, 23, 30, 0.25));
  EXPECT_EQ(formatter.formatDate(moment, formatter.dateISOFormatterDate),
            "2024-03-09T23:30:00.250");
  EXPECT_EQ(formatter.formatDate(moment, formatter.dateISOFormatterDateLocal),
            "2024-03-10T01:30:00.250");
  EXPECT_EQ(formatter.formatDate(moment, formatter.UTCdateFormatterDate), "2024-03-09");
  EXPECT_EQ(formatter.formatDate(moment, formatter.dateFormatterDate), "2024-03-10");
  EXPECT_EQ(formatter.formatDate(std::nullopt, formatter.dateFormatterDate), std::nullopt);
}

TEST(VelkDateFormatterTest, LocaleComesFromTheFirstPreferredLanguage) {
  TestDevice device({.preferredLanguages = {"th-TH", "en-US"}});
  const VelkDateFormatter formatter;
  EXPECT_EQ(formatter.dateFormatterDate.localeIdentifier(), "th-TH");
  EXPECT_EQ(formatter.dateISOFormatterDate.localeIdentifier(), "th-TH");
  // As with the platform's formatters, a locale with a calendar of its own counts years in it.
  EXPECT_EQ(formatter.formatDate(utcDate(2024, 3, 10, 12), formatter.UTCdateFormatterDate),
            "2567-03-10");
}

TEST(VelkDateFormatterDeathTest, NoPreferredLanguageStops) {
  TestDevice device({.preferredLanguages = {}});
  EXPECT_DEATH(VelkDateFormatter(), "no preferred language");
}

TEST(VelkDateFormatterTest, AgeCountsWholeYearsToTheDeviceClock) {
  TestDevice device({.timeZone = "Europe/Berlin"});
  const VelkDateFormatter formatter;
  const Date born = device.localDate(2000, 6, 15);
  device.setNow(device.localDate(2024, 6, 14, 23, 59, 59));
  EXPECT_EQ(formatter.getAge(born), 23);
  EXPECT_EQ(formatter.getAge(std::nullopt), std::nullopt);
  // The birthday begins at midnight in the device's zone: at 23:00Z on the 14th it is the 15th in
  // Berlin already.
  device.setNow(utcDate(2024, 6, 14, 23));
  EXPECT_EQ(formatter.getAge(born), 24);
}

}  // namespace
}  // namespace velk
