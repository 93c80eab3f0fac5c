// The platform's date services: the calendar in a zone, the date formatter, and the ISO 8601
// reader that store files, exports and the command line share.
#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "platform/DateFormatter.h"
#include "platform/Iso8601.h"
#include "support/TestDevice.h"
#include "velk/Calendar.h"

namespace velk::platform {
namespace {

using velk::testing::TestDevice;
using velk::testing::utcDate;  // ground truth worked out without the library's calendar

DateComponents wallTime(std::int64_t year, std::int64_t month, std::int64_t day, std::int64_t hour,
                        std::int64_t minute = 0, std::int64_t second = 0) {
  return DateComponents{year, month, day, hour, minute, second, std::nullopt};
}

TEST(CalendarTest, ComponentsFollowTheZoneAndKeepTheFraction) {
  const Date moment = utcDate(2024, 3, 9, 23, 30, 0.25);
  EXPECT_EQ(Calendar("UTC").components(moment),
            (DateComponents{2024, 3, 9, 23, 30, 0, 250'000'000}));
  EXPECT_EQ(Calendar("Europe/Berlin").components(moment),
            (DateComponents{2024, 3, 10, 0, 30, 0, 250'000'000}));
  // Before the reference moment the fraction still counts up from the whole second below.
  EXPECT_EQ(Calendar("UTC").components(utcDate(1999, 12, 31, 23, 59, 59.5)),
            (DateComponents{1999, 12, 31, 23, 59, 59, 500'000'000}));
}

TEST(CalendarTest, ClockChangesSkipAndRepeatAnHourInBothZones) {
  const Calendar berlin("Europe/Berlin");
  // 2024-03-31: at 02:00 CET the clocks go to 03:00 CEST (01:00Z).
  EXPECT_EQ(berlin.date(wallTime(2024, 3, 31, 1, 59, 59)), utcDate(2024, 3, 31, 0, 59, 59));
  EXPECT_EQ(berlin.date(wallTime(2024, 3, 31, 3, 0, 0)), utcDate(2024, 3, 31, 1));
  // A wall time inside the gap lies after it, read with the offset from before the change.
  EXPECT_EQ(berlin.date(wallTime(2024, 3, 31, 2, 30, 0)), utcDate(2024, 3, 31, 1, 30));
  EXPECT_EQ(berlin.components(utcDate(2024, 3, 31, 1, 30)),
            (DateComponents{2024, 3, 31, 3, 30, 0, 0}));
  const Calendar newYork("America/New_York");
  // 2024-11-03: at 02:00 EDT the clocks go back to 01:00 EST (06:00Z).
  for (const int hour : {5, 6})
    EXPECT_EQ(newYork.components(utcDate(2024, 11, 3, hour, 30)),
              (DateComponents{2024, 11, 3, 1, 30, 0, 0}));
  // The repeated wall time names its first occurrence (still daylight time).
  EXPECT_EQ(newYork.date(wallTime(2024, 11, 3, 1, 30)), utcDate(2024, 11, 3, 5, 30));
  // Adding a day keeps the wall time, across the 23-hour day too.
  const Date before = *berlin.date(wallTime(2024, 3, 30, 8, 15));
  const auto after = berlin.dateByAddingDays(1, before);
  ASSERT_TRUE(after);
  EXPECT_EQ(berlin.components(*after), (DateComponents{2024, 3, 31, 8, 15, 0, 0}));
  EXPECT_DOUBLE_EQ(after->timeIntervalSince(before), 23 * 3600.0);
  EXPECT_EQ(berlin.dateByAddingDays(-366, before), berlin.date(wallTime(2023, 3, 30, 8, 15)));
  EXPECT_EQ(berlin.dateByAddingDays(0, before.addingTimeInterval(0.125)),
            before.addingTimeInterval(0.125));
}

TEST(CalendarTest, DateFromComponentsIsLenientAndFillsUnsetFields) {
  const Calendar calendar("UTC");
  EXPECT_EQ(calendar.date(wallTime(2024, 13, 1, 0, 0, 0)), utcDate(2025, 1, 1));
  EXPECT_EQ(calendar.date(wallTime(2024, 3, 0, 12, 0, 0)), utcDate(2024, 2, 29, 12));
  EXPECT_EQ(calendar.date(DateComponents{2024, 3, 10, {}, {}, {}, 500'000'000}),
            utcDate(2024, 3, 10, 0, 0, 0.5));
  EXPECT_EQ(calendar.date(DateComponents{2024, {}, {}, {}, {}, {}, {}}), utcDate(2024, 1, 1));
  EXPECT_EQ(calendar.date(DateComponents{}), calendar.date(DateComponents{1, 1, 1, 0, 0, 0, 0}));
  EXPECT_EQ(calendar.date(wallTime(2024, 1, 1, 0, 0, 5'000'000'000)), std::nullopt);
}

TEST(CalendarTest, SettingTheHourMovesForwardToTheNextSuchHour) {
  const Calendar berlin("Europe/Berlin");
  const auto at = [&](int day, int hour, int minute) {
    return *berlin.date(wallTime(2024, 3, day, hour, minute));
  };
  EXPECT_EQ(berlin.dateBySettingHour(8, at(10, 8, 30)), at(10, 8, 30));  // already that hour
  EXPECT_EQ(berlin.dateBySettingHour(12, at(10, 8, 30)), at(10, 12, 0));
  EXPECT_EQ(berlin.dateBySettingHour(0, at(10, 8, 30)), at(11, 0, 0));  // earlier: next day's
  // The hour that the spring-forward night skips is met by the first moment after the gap.
  EXPECT_EQ(berlin.dateBySettingHour(2, at(31, 1, 30)), utcDate(2024, 3, 31, 1));
  EXPECT_EQ(berlin.dateBySettingHour(2, at(31, 4, 0)), *berlin.date(wallTime(2024, 4, 1, 2)));
  EXPECT_EQ(berlin.dateBySettingHour(24, at(10, 8, 30)), std::nullopt);
}

TEST(CalendarTest, YearsBetweenCountsWholeYearsFromLocalMidnight) {
  const Calendar calendar("UTC");
  const Date born = utcDate(2000, 6, 15);
  EXPECT_EQ(calendar.yearsBetween(born, utcDate(2024, 6, 14, 23, 59, 59)), 23);
  EXPECT_EQ(calendar.yearsBetween(born, utcDate(2024, 6, 15)), 24);
  EXPECT_EQ(calendar.yearsBetween(utcDate(2024, 6, 15), born), -24);
  // Adding a year to 29 February pins to the 28th in a common year, so that day completes it.
  EXPECT_EQ(calendar.yearsBetween(utcDate(2000, 2, 29), utcDate(2001, 2, 27, 23)), 0);
  EXPECT_EQ(calendar.yearsBetween(utcDate(2000, 2, 29), utcDate(2001, 2, 28)), 1);
  const Calendar tokyo("Asia/Tokyo");
  EXPECT_EQ(tokyo.yearsBetween(*tokyo.date(wallTime(2000, 6, 15, 0)), utcDate(2024, 6, 14, 15)),
            24);
}

constexpr const char* kISO = "yyyy-MM-dd'T'HH:mm:ss.SSS";

TEST(DateFormatterTest, WritesAndStrictlyParsesThePatternInItsOwnZone) {
  TestDevice device({.timeZone = "Asia/Tokyo"});
  const Date moment = utcDate(2024, 3, 9, 23, 30, 0.25);
  const DateFormatter plusTwo(kISO, "Etc/GMT-2", "en");  // UTC+02:00 (the Etc sign is inverted)
  EXPECT_EQ(plusTwo.date("2024-03-10T01:30:00.250"), moment);
  // Before 1970 and before the reference moment.
  EXPECT_EQ(DateFormatter(kISO, "UTC", "en").string(utcDate(1969, 12, 31, 23, 59, 59.5)),
            "1969-12-31T23:59:59.500");
  const DateFormatter day("yyyy-MM-dd", "Europe/Berlin", "en");
  EXPECT_EQ(day.date("2024-03-31"), utcDate(2024, 3, 30, 23));
  for (const char* text : {"2024-02-30", "2024-03-31 and more", "31.03.2024", ""})
    EXPECT_EQ(day.date(text), std::nullopt) << text;
}

TEST(DateFormatterTest, AFormatterWithoutZoneFollowsTheDevice) {
  const DateFormatter local(kISO, std::nullopt, "en");
  const DateFormatter copy = local;
  const Date moment = utcDate(2024, 11, 3, 5, 30);
  {
    TestDevice device({.timeZone = "America/New_York"});
    EXPECT_EQ(local.string(moment), "2024-11-03T01:30:00.000");
    EXPECT_EQ(local.string(moment.addingTimeInterval(3600)), "2024-11-03T01:30:00.000");
    EXPECT_EQ(local.date("2024-11-03T01:30:00.000"), moment);
  }
  {
    TestDevice device({.timeZone = "Europe/Berlin"});
    EXPECT_EQ(copy.string(moment), "2024-11-03T06:30:00.000");
    EXPECT_EQ(local.date("2024-11-03T06:30:00.000"), moment);
  }
}

TEST(DateFormatterTest, NamesFollowTheLocaleInEitherSpelling) {
  TestDevice device;
  const Date moment = utcDate(2024, 3, 10, 12);
  EXPECT_EQ(DateFormatter("d MMMM yyyy", "UTC", "de-DE").string(moment), "10 März 2024");
  EXPECT_EQ(DateFormatter("d MMMM yyyy", "UTC", "fr_FR").string(moment), "10 mars 2024");
  EXPECT_EQ(DateFormatter("EEEE", "UTC", "en-US").string(moment), "Sunday");
}

TEST(DateFormatterConcurrencyTest, OneFormatterAndOneCalendarServeManyThreads) {
  TestDevice device({.timeZone = "Europe/Berlin"});
  const DateFormatter local(kISO, std::nullopt, "en");
  const Calendar berlin("Europe/Berlin");
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        const Date moment = utcDate(2024, 1, 1 + t, 10, i % 60, 0.5);
        char expected[64];
        std::snprintf(expected, sizeof expected, "2024-01-%02dT11:%02d:00.500", 1 + t, i % 60);
        wrong += local.string(moment) != expected || local.date(expected) != moment;
        const Date changing = utcDate(2024, 3, 31, 1, i % 60, 0);  // just after the skipped hour
        wrong += berlin.date(berlin.components(changing)) != changing;
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(wrong, 0);
}

// 2024-03-10T07:30:00Z in seconds since 1970: what every form below names.
constexpr double kMoment = 1710055800;

double unixSeconds(std::string_view text, const Iso8601Syntax& syntax) {
  const auto value = readIso8601(text, syntax);
  const auto moment = value ? value->moment() : std::nullopt;
  return moment ? moment->timeIntervalSince1970() : -1;
}

// Each variant is read where the syntax takes it and nowhere else; the extended form always.
TEST(Iso8601Test, EachVariantIsReadOnlyWhereTheSyntaxTakesIt) {
  EXPECT_EQ(unixSeconds("2024-03-10T08:30:00+01:00", {}), kMoment);
  EXPECT_EQ(unixSeconds("2024-03-10T02:30:00-05:00", {}), kMoment);
  EXPECT_EQ(unixSeconds("2024-03-10T07:30:00Z", {}), kMoment);
  const std::tuple<const char*, Iso8601Syntax, double> variants[] = {
      {"2024-03-10 08:30:00+01:00", {.spaceForT = true}, kMoment},
      {"20240310083000+01:00", {.basicForm = true}, kMoment},
      {"2024-03-10T08:30+01:00", {.secondsOptional = true}, kMoment},
      {"2024-03-10T07:30:00.25Z", {.fractionDigits = 2}, kMoment + 0.25},
      {"2024-03-10T07:29:60Z", {.leapSecond = true}, kMoment},
      {"2024-03-10T08:30:00+0100", {.offsetWithoutColon = true}, kMoment},
      {"2024-03-10T08:30:00 +01:00", {.spaceBeforeOffset = true}, kMoment},
  };
  for (const auto& [text, syntax, expected] : variants) {
    EXPECT_EQ(unixSeconds(text, syntax), expected) << text;
    EXPECT_FALSE(readIso8601(text, {})) << text;
  }
  EXPECT_FALSE(readIso8601("2024-03-10T07:30:00.250Z", {.fractionDigits = 2}));
}

// Wall times and days come back as components for a calendar to place; they name no moment.
TEST(Iso8601Test, WallTimesAndDaysAreComponentsWithoutAMoment) {
  const Iso8601Syntax local{.fractionDigits = 3, .offsetOptional = true, .dayAlone = true};
  const auto wallTime = readIso8601("2024-03-10T08:30:05.25", local);
  ASSERT_TRUE(wallTime);
  EXPECT_EQ(wallTime->components, (DateComponents{2024, 3, 10, 8, 30, 5, 250'000'000}));
  EXPECT_FALSE(wallTime->moment());
  const auto day = readIso8601("2024-03-10", local);
  ASSERT_TRUE(day);
  EXPECT_EQ(day->components,
            (DateComponents{2024, 3, 10, std::nullopt, std::nullopt, std::nullopt, std::nullopt}));
  EXPECT_FALSE(readIso8601("2024-03-10", {}));
  EXPECT_EQ(readIso8601Day("2024-02-29"),
            (DateComponents{2024, 2, 29, std::nullopt, std::nullopt, std::nullopt, std::nullopt}));
  for (const char* text : {"2023-02-29", "2024-03-10T00:00:00Z", "20240310", "2024-3-10"}) {
    EXPECT_FALSE(readIso8601Day(text)) << text;
  }
}

// Fields that name no real day, time or offset, and stray text, are refused by every syntax.
TEST(Iso8601Test, NoSyntaxReadsWhatIsNoDate) {
  const Iso8601Syntax everything{.spaceForT = true,
                                 .basicForm = true,
                                 .secondsOptional = true,
                                 .fractionDigits = std::numeric_limits<std::size_t>::max(),
                                 .leapSecond = true,
                                 .offsetOptional = true,
                                 .offsetWithoutColon = true,
                                 .spaceBeforeOffset = true,
                                 .dayAlone = true};
  for (const char* text :
       {"", "2024-02-30T08:00:00Z", "2024-13-10T08:00:00Z", "2024-03-10T24:00:00Z",
        "2024-03-10T08:60:00Z", "2024-03-10T08:30:61Z", "2024-03-10T08:30:00+24:00",
        "2024-03-10T08:30:00+01:60", "2024-03-10T08:30:00.Z", "2024-03-10T08:30:00Z junk",
        "2024-03-10T08:30:00  +0100", "2024/03/10 08:30:00", "2024-03-1a", "2024-03-10T8:30",
        "2024-03-10T08:30:00*0100", "2024-03-10T08:30:00+01"}) {
    EXPECT_FALSE(readIso8601(text, everything)) << text;
  }
}

}  // namespace
}  // namespace velk::platform
