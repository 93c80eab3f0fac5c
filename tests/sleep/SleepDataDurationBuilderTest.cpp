#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "sleep/SleepDataDurationBuilder.h"
#include "support/TestDevice.h"

namespace velk {
namespace {

SleepAnalysis record(double start, double seconds, SleepEvent event) {
  return {Date::fromReferenceSeconds(start), Date::fromReferenceSeconds(start + seconds), event,
          seconds};
}

SleepDataDuration build(const std::vector<SleepAnalysis>& analyses) {
  testing::TestDevice device({.now = Date::fromReferenceSeconds(9e8)});
  return SleepDataDurationBuilder().buildSleepDataDuration(analyses);
}

TEST(SleepDataDurationBuilderTest, SumsPerStateTruncatedOnceEndsWithTheLastStartEmptyIsNow) {
  // Newest first, as the store answers. The in-bed record outlasts every later one, yet the night
  // ends with the record that starts last. The two awake records sum to 3601.2 s: truncating each
  // first would give 3600. The two identical REM records overlap and both count.
  EXPECT_EQ(
      build({record(30000, 300, SleepEvent::aSleep), record(25000, 1800.6, SleepEvent::aWake),
             record(20000, 1800.6, SleepEvent::aWake), record(10000, 900, SleepEvent::asleepREM),
             record(10000, 900, SleepEvent::asleepREM),
             record(5000, 5400.7, SleepEvent::asleepDeep),
             record(1000, 3000, SleepEvent::asleepCore), record(0, 40000, SleepEvent::inBed)}),
      SleepDataDuration(Date::fromReferenceSeconds(0), Date::fromReferenceSeconds(30300),
                        300 + 1800 + 5400.7 + 3000, 40000, 3000, 1800, 5400.7, 0, 3601.2));
  // Of records with equal starts, the later one in the input ends the night.
  EXPECT_EQ(build({record(0, 100, SleepEvent::inBed), record(0, 900, SleepEvent::inBed)}).end,
            Date::fromReferenceSeconds(900));
  EXPECT_EQ(build({record(0, 900, SleepEvent::inBed), record(0, 100, SleepEvent::inBed)}).end,
            Date::fromReferenceSeconds(100));
  const Date now = Date::fromReferenceSeconds(9e8);
  EXPECT_EQ(build({}), SleepDataDuration(now, now, 0, 0, 0, 0, 0, 0, 0));
}

TEST(SleepDataDurationDeathTest, ATotalThatIsNoWholeNumberStopsTheProcess) {
  EXPECT_DEATH(SleepDataDuration({}, {}, 0, 0, 0, 0, 0, 0, std::numeric_limits<double>::infinity()),
               "not finite");
  EXPECT_DEATH(SleepDataDuration({}, {}, 0, 9223372036854775808.0, 0, 0, 0, 0, 0), "range");
}

}  // namespace
}  // namespace velk
