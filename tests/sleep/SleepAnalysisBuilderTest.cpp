#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/TestDevice.h"
#include "velk/platform/HKSample.h"
#include "velk/sleep/SleepAnalysisBuilder.h"

namespace velk {
namespace {

using platform::HKCategorySample;

std::shared_ptr<const HKCategorySample> sample(std::int64_t value, double start, double end,
                                               const std::string& source = "com.apple.health") {
  return std::make_shared<const HKCategorySample>(
      platform::HKSampleHeader{
          platform::HKObjectType(platform::InternedString("HKCategoryTypeIdentifierSleepAnalysis"),
                                 platform::HKObjectKind::category),
          Date::fromReferenceSeconds(start), Date::fromReferenceSeconds(end),
          platform::InternedString(source), platform::InternedString("Health"), std::nullopt},
      value);
}

std::vector<SleepAnalysis> build(platform::OSVersion version,
                                 const SleepAnalysisBuilder::Samples& samples) {
  testing::TestDevice device({.osVersion = version});
  return SleepAnalysisBuilder().buildSleepAnalyses(samples);
}

std::vector<SleepEvent> eventsOf(const std::vector<SleepAnalysis>& analyses) {
  std::vector<SleepEvent> events;
  for (const SleepAnalysis& analysis : analyses) {
    events.push_back(analysis.eventSleep);
  }
  return events;
}

TEST(SleepAnalysisBuilderTest, EveryValueTranslatesToItsStateAndUnknownValuesAreDropped) {
  const SleepAnalysisBuilder::Samples samples = {
      sample(0, 0, 10), sample(1, 0, 10), sample(2, 0, 10), sample(3, 0, 10),
      sample(4, 0, 10), sample(5, 0, 10), sample(6, 0, 10), sample(-1, 0, 10)};
  EXPECT_EQ(eventsOf(build({16, 0, 0}, samples)),
            (std::vector<SleepEvent>{SleepEvent::inBed, SleepEvent::aSleep, SleepEvent::aWake,
                                     SleepEvent::asleepCore, SleepEvent::asleepDeep,
                                     SleepEvent::asleepREM}));
  // Before 16.0 the stage values are not understood: only in bed, asleep and awake survive.
  EXPECT_EQ(eventsOf(build({15, 7, 9}, samples)),
            (std::vector<SleepEvent>{SleepEvent::inBed, SleepEvent::aSleep, SleepEvent::aWake}));
}

TEST(SleepAnalysisBuilderTest, OnlyTheHealthAppsOwnSourcesAreKept) {
  const SleepAnalysisBuilder::Samples samples = {
      sample(1, 0, 10, "com.apple.health"),
      sample(1, 0, 20, "com.apple.health.8D2F3A4B-1C2D-4E5F-9A0B-112233445566"),
      sample(1, 0, 30, "xx.com.apple.health.yy"),  // a substring test, not a prefix test
      sample(1, 0, 40, "com.sleepcycle.app"),
      sample(1, 0, 50, "com.apple.Health"),  // case matters
  };
  const std::vector<SleepAnalysis> analyses = build({17, 0, 0}, samples);
  ASSERT_EQ(analyses.size(), 3u);
  EXPECT_EQ(analyses[2].durationSeconds, 30);
}

TEST(SleepAnalysisBuilderTest, RecordsKeepInputOrderOverlapsAndAPositiveLength) {
  // Newest first, as the store answers; two devices' overlapping in-bed samples both survive.
  const std::vector<SleepAnalysis> analyses =
      build({17, 0, 0},
            {sample(0, 500, 900.5), sample(0, 100, 900), sample(0, 100, 900), sample(2, 50, 20)});
  ASSERT_EQ(analyses.size(), 4u);
  EXPECT_EQ(analyses[0],
            (SleepAnalysis{Date::fromReferenceSeconds(500), Date::fromReferenceSeconds(900.5),
                           SleepEvent::inBed, 400.5}));
  EXPECT_EQ(analyses[1], analyses[2]);
  // A sample that ends before it starts still has a positive length.
  EXPECT_EQ(analyses[3].durationSeconds, 30);
  EXPECT_EQ(analyses[3].startDate, Date::fromReferenceSeconds(50));
}

TEST(SleepAnalysisBuilderTest, NoSamplesGiveNoRecords) {
  EXPECT_TRUE(build({17, 0, 0}, {}).empty());
}

}  // namespace
}  // namespace velk
