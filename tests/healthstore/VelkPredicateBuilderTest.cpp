#include <gtest/gtest.h>

#include "support/TestDevice.h"
#include "velk/healthstore/VelkPredicateBuilder.h"

namespace velk {
namespace {

using platform::NSPredicate;

struct Window {
  Date start, end;
};

Window windowOf(const NSPredicate& predicate) {
  const auto bounds = predicate.dateBounds();
  EXPECT_TRUE(bounds.start && bounds.end);
  return {bounds.start.value_or(Date()), bounds.end.value_or(Date())};
}

TEST(VelkPredicateBuilderTest, SleepAndPhysicalWindowsOfAnOrdinaryDay) {
  testing::TestDevice device({.timeZone = "Europe/Berlin"});
  const VelkPredicateBuilder builder;
  const Date date = device.localDate(2024, 3, 10, 8, 30);

  const Window sleep = windowOf(builder.getPredicate(date, 12, 0, 0, 24.0).value());
  EXPECT_EQ(sleep.start, device.localDate(2024, 3, 9, 12));
  EXPECT_EQ(sleep.end, device.localDate(2024, 3, 10, 12));
  const Window physical = windowOf(builder.getPredicate(date, 23, 59, 59, 23.9).value());
  EXPECT_EQ(physical.start, device.localDate(2024, 3, 10, 0, 5, 59));
  EXPECT_EQ(physical.end, device.localDate(2024, 3, 10, 23, 59, 59));
  // Any time of the day gives the same windows.
  EXPECT_EQ(builder.getDate(device.localDate(2024, 3, 10, 23, 59), 0, 0, 0),
            device.localDate(2024, 3, 10));

  const auto predicate = builder.getPredicate(date, 23, 59, 59, 23.9).value();
  const NSPredicate::Subject lateNight{device.localDate(2024, 3, 9, 23, 30),
                                       device.localDate(2024, 3, 10, 0, 10), std::nullopt};
  EXPECT_TRUE(predicate.evaluate(lateNight));
  const NSPredicate::Subject earlyMorning{device.localDate(2024, 3, 10, 0, 1),
                                          device.localDate(2024, 3, 10, 0, 5), false};
  EXPECT_FALSE(predicate.evaluate(earlyMorning));
  const NSPredicate::Subject byHand{device.localDate(2024, 3, 10, 9),
                                    device.localDate(2024, 3, 10, 10), true};
  EXPECT_FALSE(predicate.evaluate(byHand));
}

TEST(VelkPredicateBuilderTest, ClockChangesMoveTheStartNotTheEnd) {
  {
    testing::TestDevice device({.timeZone = "Europe/Berlin"});  // 31 March 2024: 23 hours
    const Window physical =
        windowOf(VelkPredicateBuilder()
                     .getPredicate(device.localDate(2024, 3, 31, 15), 23, 59, 59, 23.9)
                     .value());
    EXPECT_EQ(physical.end, device.localDate(2024, 3, 31, 23, 59, 59));
    EXPECT_DOUBLE_EQ(physical.end.timeIntervalSince(physical.start), 86040.0);
    EXPECT_EQ(physical.start, device.localDate(2024, 3, 30, 23, 5, 59));
  }
  {
    testing::TestDevice device({.timeZone = "America/New_York"});  // 3 November 2024: 25 hours
    const VelkPredicateBuilder builder;
    const Date date = device.localDate(2024, 11, 3, 6);
    const Window sleep = windowOf(builder.getPredicate(date, 12, 0, 0, 24.0).value());
    EXPECT_EQ(sleep.end, device.localDate(2024, 11, 3, 12));
    EXPECT_EQ(sleep.start, device.localDate(2024, 11, 2, 13));
    const Window physical = windowOf(builder.getPredicate(date, 23, 59, 59, 23.9).value());
    // The extra hour pushes the start an hour past 00:05:59.
    EXPECT_DOUBLE_EQ(physical.end.timeIntervalSince(physical.start), 86040.0);
    EXPECT_DOUBLE_EQ(physical.start.timeIntervalSince(device.localDate(2024, 11, 3, 0, 5, 59)),
                     3600.0);
    EXPECT_EQ(builder.getDate(date, 0, 0, 0), device.localDate(2024, 11, 3));
  }
}

}  // namespace
}  // namespace velk
