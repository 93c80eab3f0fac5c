// Day sums over overlapping sources: what a phone and a watch count together counts once.
#include <gtest/gtest.h>

#include "support/StoreFixture.h"
#include "support/TestDevice.h"
#include "velk/platform/CumulativeSum.h"
#include "velk/platform/HKHealthStore.h"

namespace velk::platform {
namespace {

using testing::utcDate;

constexpr const char* kPhone = "com.apple.health.device.iphone";
constexpr const char* kWatch = "com.apple.health.device.apple-watch";
constexpr const char* kApp = "export.source.pedometer";

std::string stepSample(const char* source, const char* start, const char* end, double value,
                       bool userEntered = false) {
  std::string text = R"({"type": "HKQuantityTypeIdentifierStepCount", "source": ")" +
                     std::string(source) + R"(", "start": ")" + start + R"(", "end": ")" + end +
                     R"(", "value": )" + std::to_string(value);
  if (userEntered) {
    text += R"(, "metadata": {"HKWasUserEntered": true})";
  }
  return text + "}";
}

std::string storeFile(const std::vector<std::string>& samples, const std::string& extra = {}) {
  std::string text = "{" + extra + R"("samples": [)";
  for (std::size_t i = 0; i < samples.size(); ++i) {
    text += (i ? "," : "") + samples[i];
  }
  return text + "]}";
}

// The daily step sums of 9 and 10 March 2024 (UTC), as the store's collection query gives them.
std::vector<std::optional<double>> dailySteps(const std::string& json) {
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(json)});
  DateComponents oneDay;
  oneDay.day = 1;
  auto answer = testing::runCollectionQuery(
      HKHealthStore(),
      HKStatisticsCollectionQuery(
          HKObjectType::quantityTypeForIdentifier("HKQuantityTypeIdentifierStepCount").value(),
          std::nullopt, HKStatisticsOptions::cumulativeSum, utcDate(2024, 3, 9), oneDay));
  std::vector<std::optional<double>> sums;
  if (!answer.collection) {
    ADD_FAILURE() << "no collection";
    return sums;
  }
  answer.collection->enumerateStatistics(
      utcDate(2024, 3, 9), utcDate(2024, 3, 10, 12), [&sums](const HKStatistics& statistics) {
        sums.push_back(
            statistics.sumQuantity()
                ? std::optional(statistics.sumQuantity()->doubleValueForUnit(HKUnit::countUnit()))
                : std::nullopt);
      });
  return sums;
}

TEST(SourceMergeTest, PhoneAndWatchStepsCountOnceWithTheWatchFirstAndOtherAppsLast) {
  const std::vector<std::string> samples{
      stepSample(kPhone, "2024-03-10T08:00:00Z", "2024-03-10T08:10:00Z", 1000),
      stepSample(kWatch, "2024-03-10T08:05:00Z", "2024-03-10T08:15:00Z", 600),
      stepSample(kApp, "2024-03-10T08:00:00Z", "2024-03-10T08:20:00Z", 2000)};
  // The watch counts all its 600; the phone only its first five minutes (500); the app only
  // the last five minutes, where nobody else counted (500).
  auto sums = dailySteps(storeFile(samples));
  ASSERT_EQ(sums.size(), 2u);
  EXPECT_FALSE(sums[0]);
  EXPECT_DOUBLE_EQ(sums[1].value(), 600 + 500 + 500);

  // A listed source goes first: now the phone counts in full, the watch after 08:10.
  sums =
      dailySteps(storeFile(samples, R"("source_priority": [")" + std::string(kPhone) + R"("],)"));
  EXPECT_DOUBLE_EQ(sums[1].value(), 1000 + 300 + 500);
}

TEST(SourceMergeTest, HandEnteredStepsWinOverEveryDeviceWhereTheyOverlap) {
  const auto sums = dailySteps(
      storeFile({stepSample(kWatch, "2024-03-10T08:00:00Z", "2024-03-10T08:20:00Z", 1000),
                 stepSample(kApp, "2024-03-10T08:00:00Z", "2024-03-10T08:10:00Z", 300, true),
                 // Not hand-entered: the same app's measured samples stay below the watch.
                 stepSample(kApp, "2024-03-10T08:10:00Z", "2024-03-10T08:20:00Z", 999)}));
  EXPECT_DOUBLE_EQ(sums.at(1).value(), 300 + 500);
}

TEST(SourceMergeTest, ProrationAcrossMidnightHoldsWhileSourcesOverlap) {
  // The phone's 1,200 steps span 23:50 to 00:10, the watch's 400 span 23:55 to 00:05.
  const auto sums = dailySteps(
      storeFile({stepSample(kPhone, "2024-03-09T23:50:00Z", "2024-03-10T00:10:00Z", 1200),
                 stepSample(kWatch, "2024-03-09T23:55:00Z", "2024-03-10T00:05:00Z", 400)}));
  ASSERT_EQ(sums.size(), 2u);
  EXPECT_DOUBLE_EQ(sums[0].value(), 300 + 200);  // phone 23:50-23:55, watch to midnight
  EXPECT_DOUBLE_EQ(sums[1].value(), 200 + 300);  // watch to 00:05, phone to 00:10
}

TEST(SourceMergeTest, OneSourceIsItsPlainSumEvenWhereItsSamplesOverlap) {
  const auto sums = dailySteps(
      storeFile({stepSample(kPhone, "2024-03-10T08:00:00Z", "2024-03-10T09:00:00Z", 700),
                 stepSample(kPhone, "2024-03-10T08:30:00Z", "2024-03-10T08:40:00Z", 0.1),
                 stepSample(kPhone, "2024-03-10T08:30:00Z", "2024-03-10T08:40:00Z", 0.2)}));
  EXPECT_EQ(sums.at(1).value(), 700 + 0.1 + 0.2);  // the same bits as the sum in stored order
}

TEST(SourceMergeTest, AnInstantCountsUnlessAMoreTrustedSourceCoversIt) {
  const InternedString watch(kWatch);
  const InternedString app(kApp);
  const std::vector<SummableSample> samples{
      {utcDate(2024, 3, 10, 8), utcDate(2024, 3, 10, 9), 60, watch},
      {utcDate(2024, 3, 10, 8, 30), utcDate(2024, 3, 10, 8, 30), 5, app},          // covered
      {utcDate(2024, 3, 10, 9, 30), utcDate(2024, 3, 10, 9, 30), 7, app},          // alone
      {utcDate(2024, 3, 10, 8, 45), utcDate(2024, 3, 10, 8, 45), 11, app, true}};  // by hand
  EXPECT_DOUBLE_EQ(CumulativeSum::over(samples, utcDate(2024, 3, 10), utcDate(2024, 3, 11)).value(),
                   60 + 7 + 11);
}

TEST(SourceMergeTest, TheOrderIsTotalAndIndependentOfSampleOrder) {
  const SourcePriority priority({"b.app"});
  const SampleOrigin byHand{InternedString("z.app"), true};
  const SampleOrigin listed{InternedString("b.app"), false};
  const SampleOrigin watch{InternedString("com.apple.health.device.my-watch"), false};
  const SampleOrigin phone{InternedString("com.apple.health.device.iphone"), false};
  const SampleOrigin healthApp{InternedString("com.apple.health"), false};
  const SampleOrigin other{InternedString("a.app"), false};
  const std::vector<SampleOrigin> expected{byHand, listed, watch, healthApp, phone, other};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    for (std::size_t j = 0; j < expected.size(); ++j) {
      EXPECT_EQ(priority.precedes(expected[i], expected[j]), i < j) << i << " " << j;
    }
  }
}

}  // namespace
}  // namespace velk::platform
