#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "velk/platform/Calendar.h"

namespace velk::platform {
namespace {

// Ground truth computed without ICU: the civil calendar of <chrono> in UTC.
Date utc(int year, unsigned month, unsigned day, int hour = 0, int minute = 0, double second = 0) {
  using namespace std::chrono;
  const auto midnight =
      sys_days{std::chrono::year{year} / std::chrono::month{month} / std::chrono::day{day}};
  const double unixSeconds = static_cast<double>(midnight.time_since_epoch().count()) * 86400.0 +
                             hour * 3600.0 + minute * 60.0 + second;
  return Date::fromUnixSeconds(unixSeconds);
}

DateComponents wallTime(std::int64_t year, std::int64_t month, std::int64_t day, std::int64_t hour,
                        std::int64_t minute = 0, std::int64_t second = 0) {
  return DateComponents{year, month, day, hour, minute, second, std::nullopt};
}

TEST(CalendarTest, KnowsZonesByTheirIanaNames) {
  EXPECT_TRUE(Calendar::isKnownTimeZone("UTC"));
  EXPECT_TRUE(Calendar::isKnownTimeZone("Europe/Berlin"));
  EXPECT_TRUE(Calendar::isKnownTimeZone("America/New_York"));
  EXPECT_FALSE(Calendar::isKnownTimeZone("Mars/Olympus_Mons"));
  EXPECT_FALSE(Calendar::isKnownTimeZone(""));
  EXPECT_EQ(Calendar("Europe/Berlin").timeZoneIdentifier(), "Europe/Berlin");
}

TEST(CalendarTest, ComponentsFollowTheZoneAndKeepTheFraction) {
  const Date moment = utc(2024, 3, 9, 23, 30, 0.25);
  const auto inUTC = Calendar("UTC").components(moment);
  EXPECT_EQ(inUTC, (DateComponents{2024, 3, 9, 23, 30, 0, 250'000'000}));
  const auto inBerlin = Calendar("Europe/Berlin").components(moment);
  EXPECT_EQ(inBerlin, (DateComponents{2024, 3, 10, 0, 30, 0, 250'000'000}));
  // Before the reference moment the fraction still counts up from the whole second below.
  EXPECT_EQ(Calendar("UTC").components(utc(1999, 12, 31, 23, 59, 59.5)),
            (DateComponents{1999, 12, 31, 23, 59, 59, 500'000'000}));
}

TEST(CalendarTest, BerlinSpringForwardSkipsAnHour) {
  const Calendar berlin("Europe/Berlin");
  // 2024-03-31: at 02:00 CET the clocks go to 03:00 CEST (01:00Z).
  EXPECT_EQ(berlin.date(wallTime(2024, 3, 31, 1, 59, 59)), utc(2024, 3, 31, 0, 59, 59));
  EXPECT_EQ(berlin.date(wallTime(2024, 3, 31, 3, 0, 0)), utc(2024, 3, 31, 1));
  // A wall time inside the gap lies after it, read with the offset from before the change.
  EXPECT_EQ(berlin.date(wallTime(2024, 3, 31, 2, 30, 0)), utc(2024, 3, 31, 1, 30));
  EXPECT_EQ(berlin.components(utc(2024, 3, 31, 1, 30)), (DateComponents{2024, 3, 31, 3, 30, 0, 0}));
  // The day is 23 hours long.
  const auto start = berlin.date(wallTime(2024, 3, 31, 0));
  const auto next = berlin.date(wallTime(2024, 4, 1, 0));
  ASSERT_TRUE(start && next);
  EXPECT_DOUBLE_EQ(next->timeIntervalSince(*start), 23 * 3600.0);
}

TEST(CalendarTest, NewYorkFallBackRepeatsAnHour) {
  const Calendar newYork("America/New_York");
  // 2024-11-03: at 02:00 EDT the clocks go back to 01:00 EST (06:00Z).
  EXPECT_EQ(newYork.components(utc(2024, 11, 3, 5, 30)),
            (DateComponents{2024, 11, 3, 1, 30, 0, 0}));
  EXPECT_EQ(newYork.components(utc(2024, 11, 3, 6, 30)),
            (DateComponents{2024, 11, 3, 1, 30, 0, 0}));
  // The repeated wall time names its first occurrence (still daylight time).
  EXPECT_EQ(newYork.date(wallTime(2024, 11, 3, 1, 30)), utc(2024, 11, 3, 5, 30));
  EXPECT_EQ(newYork.date(wallTime(2024, 11, 3, 23, 59, 59)), utc(2024, 11, 4, 4, 59, 59));
  const auto start = newYork.date(wallTime(2024, 11, 3, 0));
  const auto next = newYork.date(wallTime(2024, 11, 4, 0));
  ASSERT_TRUE(start && next);
  EXPECT_DOUBLE_EQ(next->timeIntervalSince(*start), 25 * 3600.0);
}

TEST(CalendarTest, DateFromComponentsIsLenientAndFillsUnsetFields) {
  const Calendar calendar("UTC");
  EXPECT_EQ(calendar.date(wallTime(2024, 1, 31, 24, 0, 0)), utc(2024, 2, 1));
  EXPECT_EQ(calendar.date(wallTime(2024, 13, 1, 0, 0, 0)), utc(2025, 1, 1));
  EXPECT_EQ(calendar.date(wallTime(2024, 3, 0, 12, 0, 0)), utc(2024, 2, 29, 12));
  EXPECT_EQ(calendar.date(
                DateComponents{2024, 3, 10, std::nullopt, std::nullopt, std::nullopt, 500'000'000}),
            utc(2024, 3, 10, 0, 0, 0.5));
  EXPECT_EQ(calendar.date(DateComponents{2024, {}, {}, {}, {}, {}, {}}), utc(2024, 1, 1));
  const DateComponents yearOne{1, 1, 1, 0, 0, 0, 0};
  EXPECT_EQ(calendar.date(DateComponents{}), calendar.date(yearOne));
  EXPECT_EQ(calendar.date(wallTime(2024, 1, 1, 0, 0, 5'000'000'000)), std::nullopt);
  // Round trip through components.
  const Date moment = utc(2023, 7, 14, 18, 45, 12);
  EXPECT_EQ(Calendar("Asia/Kolkata").date(Calendar("Asia/Kolkata").components(moment)), moment);
}

TEST(CalendarTest, SettingTheHourMovesForwardToTheNextSuchHour) {
  const Calendar berlin("Europe/Berlin");
  const auto at = [&](int day, int hour, int minute) {
    return *berlin.date(wallTime(2024, 3, day, hour, minute));
  };
  // The hour already matches: the date comes back unchanged, minutes and all.
  EXPECT_EQ(berlin.dateBySettingHour(8, at(10, 8, 30)), at(10, 8, 30));
  // A later hour on the same day, at its start.
  EXPECT_EQ(berlin.dateBySettingHour(12, at(10, 8, 30)), at(10, 12, 0));
  // An earlier hour is next day's.
  EXPECT_EQ(berlin.dateBySettingHour(0, at(10, 8, 30)), at(11, 0, 0));
  EXPECT_EQ(berlin.dateBySettingHour(7, at(10, 8, 30)), at(11, 7, 0));
  // The hour that the spring-forward night skips is met by the first moment after the gap.
  EXPECT_EQ(berlin.dateBySettingHour(2, at(31, 1, 30)), utc(2024, 3, 31, 1));
  EXPECT_EQ(berlin.dateBySettingHour(2, at(31, 4, 0)), *berlin.date(wallTime(2024, 4, 1, 2)));
  EXPECT_EQ(berlin.dateBySettingHour(24, at(10, 8, 30)), std::nullopt);
  EXPECT_EQ(berlin.dateBySettingHour(-1, at(10, 8, 30)), std::nullopt);
}

TEST(CalendarTest, AddingDaysKeepsTheWallTimeAcrossClockChanges) {
  const Calendar berlin("Europe/Berlin");
  const Date before = *berlin.date(wallTime(2024, 3, 30, 8, 15));
  const auto after = berlin.dateByAddingDays(1, before);
  ASSERT_TRUE(after);
  EXPECT_EQ(berlin.components(*after), (DateComponents{2024, 3, 31, 8, 15, 0, 0}));
  EXPECT_DOUBLE_EQ(after->timeIntervalSince(before), 23 * 3600.0);
  EXPECT_EQ(berlin.dateByAddingDays(-366, before), berlin.date(wallTime(2023, 3, 30, 8, 15)));
  EXPECT_EQ(berlin.dateByAddingDays(0, before.addingTimeInterval(0.125)),
            before.addingTimeInterval(0.125));
}

TEST(CalendarTest, YearsBetweenCountsWholeYears) {
  const Calendar calendar("UTC");
  const Date born = utc(2000, 6, 15);
  EXPECT_EQ(calendar.yearsBetween(born, utc(2024, 6, 14, 23, 59, 59)), 23);
  EXPECT_EQ(calendar.yearsBetween(born, utc(2024, 6, 15)), 24);
  EXPECT_EQ(calendar.yearsBetween(born, born), 0);
  EXPECT_EQ(calendar.yearsBetween(utc(2024, 6, 15), born), -24);
  // Adding a year to 29 February pins to the 28th in a common year, so that day completes it.
  EXPECT_EQ(calendar.yearsBetween(utc(2000, 2, 29), utc(2001, 2, 27, 23)), 0);
  EXPECT_EQ(calendar.yearsBetween(utc(2000, 2, 29), utc(2001, 2, 28)), 1);
  // The birthday begins at local midnight, not at UTC midnight.
  const Calendar tokyo("Asia/Tokyo");
  EXPECT_EQ(tokyo.yearsBetween(*tokyo.date(wallTime(2000, 6, 15, 0)), utc(2024, 6, 14, 15, 0, 0)),
            24);
}

TEST(CalendarConcurrencyTest, OneCalendarServesManyThreads) {
  const Calendar berlin("Europe/Berlin");
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (std::size_t t = 0; t < wrong.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        const Date moment = utc(2024, 3, 31, 1, i % 60, 0);
        const auto back = berlin.date(berlin.components(moment));
        if (back != moment)
          ++wrong[t];
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

}  // namespace
}  // namespace velk::platform
