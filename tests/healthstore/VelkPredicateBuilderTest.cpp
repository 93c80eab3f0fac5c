#include <gtest/gtest.h>

#include "healthstore/VelkPredicateBuilder.h"
#include "support/TestDevice.h"

namespace velk {
namespace {

using platform::NSPredicate;

struct Window {
  Date start, end;
};

// The sleep (noon to noon) and physical (to 23:59:59, 23.9 hours back) windows for `date`.
Window windowOf(Date date, bool sleep) {
  const auto predicate = sleep ? VelkPredicateBuilder().getPredicate(date, 12, 0, 0, 24.0)
                               : VelkPredicateBuilder().getPredicate(date, 23, 59, 59, 23.9);
  const auto bounds = predicate ? predicate->dateBounds() : NSPredicate::DateBounds{};
  EXPECT_TRUE(bounds.start && bounds.end);
  return {bounds.start.value_or(Date()), bounds.end.value_or(Date())};
}

TEST(VelkPredicateBuilderTest, SleepAndPhysicalWindowsOfAnOrdinaryDay) {
  testing::TestDevice device({.timeZone = "Europe/Berlin"});
  const VelkPredicateBuilder builder;
  const Date date = device.localDate(2024, 3, 10, 8, 30);
  const Window sleep = windowOf(date, true);
  EXPECT_EQ(sleep.start, device.localDate(2024, 3, 9, 12));
  EXPECT_EQ(sleep.end, device.localDate(2024, 3, 10, 12));
  const Window physical = windowOf(date, false);
  EXPECT_EQ(physical.start, device.localDate(2024, 3, 10, 0, 5, 59));
  EXPECT_EQ(physical.end, device.localDate(2024, 3, 10, 23, 59, 59));
  // Any time of the day gives the same windows.
  EXPECT_EQ(builder.getDate(device.localDate(2024, 3, 10, 23, 59), 0, 0, 0),
            device.localDate(2024, 3, 10));

  const auto predicate = builder.getPredicate(date, 23, 59, 59, 23.9).value();
  const auto at = [&](int day, int hour, int minute) {
    return device.localDate(2024, 3, day, hour, minute);
  };
  EXPECT_TRUE(predicate.evaluate({at(9, 23, 30), at(10, 0, 10), std::nullopt}));  // late night
  EXPECT_FALSE(predicate.evaluate({at(10, 0, 1), at(10, 0, 5), false}));          // early morning
  EXPECT_FALSE(predicate.evaluate({at(10, 9, 0), at(10, 10, 0), true}));          // by hand
}

TEST(VelkPredicateBuilderTest, ClockChangesMoveTheStartNotTheEnd) {
  {
    testing::TestDevice device({.timeZone = "Europe/Berlin"});  // 31 March 2024: 23 hours
    const Window physical = windowOf(device.localDate(2024, 3, 31, 15), false);
    EXPECT_EQ(physical.end, device.localDate(2024, 3, 31, 23, 59, 59));
    EXPECT_DOUBLE_EQ(physical.end.timeIntervalSince(physical.start), 86040.0);
    EXPECT_EQ(physical.start, device.localDate(2024, 3, 30, 23, 5, 59));
  }
  testing::TestDevice device({.timeZone = "America/New_York"});  // 3 November 2024: 25 hours
  const Date date = device.localDate(2024, 11, 3, 6);
  const Window sleep = windowOf(date, true);
  EXPECT_EQ(sleep.end, device.localDate(2024, 11, 3, 12));
  EXPECT_EQ(sleep.start, device.localDate(2024, 11, 2, 13));
  const Window physical = windowOf(date, false);
  // The extra hour pushes the start an hour past 00:05:59.
  EXPECT_DOUBLE_EQ(physical.end.timeIntervalSince(physical.start), 86040.0);
  EXPECT_DOUBLE_EQ(physical.start.timeIntervalSince(device.localDate(2024, 11, 3, 0, 5, 59)),
                   3600.0);
  EXPECT_EQ(VelkPredicateBuilder().getDate(date, 0, 0, 0), device.localDate(2024, 11, 3));
}

}  // namespace
}  // namespace velk
