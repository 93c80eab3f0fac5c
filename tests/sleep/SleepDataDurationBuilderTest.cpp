#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "velk/platform/Device.h"
#include "velk/sleep/SleepDataDurationBuilder.h"
#include "velk/sleep/SleepEvent.h"

namespace velk {
namespace {

constexpr double kNow = 760000000.0;

// A device whose clock stands still, so that the empty night has a known start and end.
class SleepDataDurationBuilderTest : public ::testing::Test {
 protected:
  SleepDataDurationBuilderTest()
      : scope_(std::make_shared<platform::Device>(
            platform::DeviceSettings{.clock = [] { return Date::fromReferenceSeconds(kNow); }},
            nullptr, nullptr, std::make_shared<platform::MainQueue>())) {}

  static SleepAnalysis analysis(double start, double seconds, SleepEvent event) {
    return SleepAnalysis{Date::fromReferenceSeconds(start),
                         Date::fromReferenceSeconds(start + seconds), event, seconds};
  }

  SleepDataDuration build(const std::vector<SleepAnalysis>& analyses) const {
    return SleepDataDurationBuilder().buildSleepDataDuration(analyses);
  }

 private:
  platform::DeviceScope scope_;
};

TEST_F(SleepDataDurationBuilderTest, EmptyNightStartsAndEndsNowWithZeroTotals) {
  const SleepDataDuration night = build({});
  const Date now = Date::fromReferenceSeconds(kNow);
  EXPECT_EQ(night, SleepDataDuration(now, now, 0, 0, 0, 0, 0, 0, 0));
}

TEST_F(SleepDataDurationBuilderTest, EachStateHasItsOwnTotalAndAsleepStagesAlsoCountAsAsleep) {
  const SleepDataDuration night = build({
      analysis(0, 28800, SleepEvent::inBed),
      analysis(600, 20000, SleepEvent::asleepCore),
      analysis(21000, 600, SleepEvent::aWake),
      analysis(22000, 1000, SleepEvent::asleepREM),
      analysis(23000, 2000, SleepEvent::asleepDeep),
      analysis(25000, 300, SleepEvent::aSleep),
  });
  EXPECT_EQ(night.timeInBed, 28800);
  EXPECT_EQ(night.duration, 20000 + 1000 + 2000 + 300);
  EXPECT_EQ(night.sleepLightDuration, 20000);
  EXPECT_EQ(night.sleepRemDuration, 1000);
  EXPECT_EQ(night.sleepDeepDuration, 2000);
  EXPECT_EQ(night.sleepAwakeDuration, 600);
  EXPECT_EQ(night.sleepFallDuration, 0);
}

TEST_F(SleepDataDurationBuilderTest, TotalsAreTruncatedOnlyAfterSumming) {
  EXPECT_EQ(build({analysis(0, 5400.7, SleepEvent::asleepDeep)}),
            SleepDataDuration(Date::fromReferenceSeconds(0), Date::fromReferenceSeconds(5400.7),
                              5400, 0, 0, 0, 5400, 0, 0));
  // 1800.6 + 1800.6 = 3601.2: truncating each record first would give 3600.
  EXPECT_EQ(
      build({analysis(0, 1800.6, SleepEvent::aWake), analysis(2000, 1800.6, SleepEvent::aWake)})
          .sleepAwakeDuration,
      3601);
}

TEST_F(SleepDataDurationBuilderTest, OverlappingRecordsAreCountedEachTime) {
  EXPECT_EQ(build({analysis(0, 3600, SleepEvent::aSleep), analysis(0, 3600, SleepEvent::aSleep)})
                .duration,
            7200);
}

TEST_F(SleepDataDurationBuilderTest, NightEndsWithTheRecordThatStartsLastNotTheLatestEnd) {
  // Newest first, as the store answers: a long in-bed record that outlasts a later short one.
  const SleepDataDuration night = build({
      analysis(5000, 100, SleepEvent::aWake),
      analysis(1000, 20000, SleepEvent::inBed),
      analysis(2000, 500, SleepEvent::asleepCore),
  });
  EXPECT_EQ(night.start, Date::fromReferenceSeconds(1000));
  EXPECT_EQ(night.end, Date::fromReferenceSeconds(5100));
}

TEST_F(SleepDataDurationBuilderTest, RecordsWithEqualStartsKeepTheirInputOrder) {
  // Both start at 0; the stable sort keeps the second given last, so its end is the night's end.
  EXPECT_EQ(build({analysis(0, 100, SleepEvent::inBed), analysis(0, 900, SleepEvent::inBed)}).end,
            Date::fromReferenceSeconds(900));
  EXPECT_EQ(build({analysis(0, 900, SleepEvent::inBed), analysis(0, 100, SleepEvent::inBed)}).end,
            Date::fromReferenceSeconds(100));
}

TEST(SleepDataDurationDeathTest, ATotalThatIsNoWholeNumberStopsTheProcess) {
  const Date zero;
  EXPECT_DEATH(
      SleepDataDuration(zero, zero, std::numeric_limits<double>::infinity(), 0, 0, 0, 0, 0, 0),
      "not finite");
  EXPECT_DEATH(SleepDataDuration(zero, zero, 0, 9223372036854775808.0, 0, 0, 0, 0, 0), "outside");
  // The lowest int64 itself still converts.
  EXPECT_EQ(
      SleepDataDuration(zero, zero, 0, 0, 0, 0, -9223372036854775808.0, 0, 0).sleepDeepDuration,
      std::numeric_limits<std::int64_t>::min());
}

TEST(SleepEventTest, RawValuesRoundTripAndNothingElseIsAccepted) {
  for (SleepEvent event : {SleepEvent::aSleep, SleepEvent::inBed, SleepEvent::aWake,
                           SleepEvent::asleepREM, SleepEvent::asleepCore, SleepEvent::asleepDeep}) {
    EXPECT_EQ(sleepEventFromRawValue(rawValue(event)), event);
  }
  EXPECT_EQ(rawValue(SleepEvent::aWake), "aWake");
  EXPECT_EQ(sleepEventFromRawValue("asleep"), std::nullopt);
  EXPECT_EQ(sleepEventFromRawValue("awake"), std::nullopt);
  EXPECT_EQ(sleepEventFromRawValue(""), std::nullopt);
}

}  // namespace
}  // namespace velk
