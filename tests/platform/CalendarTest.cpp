#include <gtest/gtest.h>

#include "support/TestDevice.h"
#include "velk/Calendar.h"

namespace velk::platform {
namespace {

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

}  // namespace
}  // namespace velk::platform
