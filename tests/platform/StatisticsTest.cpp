#include <gtest/gtest.h>

#include <thread>

#include "support/StoreFixture.h"
#include "support/TestDevice.h"
#include "velk/platform/CumulativeSum.h"
#include "velk/platform/HKHealthStore.h"

namespace velk::platform {
namespace {

using testing::utcDate;

struct Interval {
  Date start, end;
  std::optional<double> kcal;
};

std::vector<Interval> intervals(const HKStatisticsCollection& collection, Date from, Date to) {
  std::vector<Interval> result;
  collection.enumerateStatistics(from, to, [&result](const HKStatistics& statistics) {
    std::optional<double> sum;
    if (statistics.sumQuantity()) {
      sum = statistics.sumQuantity()->doubleValueForUnit(HKUnit::kilocalorieUnit());
    }
    result.push_back({statistics.startDate(), statistics.endDate(), sum});
  });
  return result;
}

DateComponents oneDay() {
  DateComponents components;
  components.day = 1;
  return components;
}

// Daily sums of active energy, in the device's calendar.
HKStatisticsCollection dailyEnergy(Date anchor,
                                   std::optional<NSPredicate> predicate = std::nullopt) {
  const HKHealthStore store;
  auto answer = testing::runCollectionQuery(
      store,
      HKStatisticsCollectionQuery(
          HKObjectType::quantityTypeForIdentifier("HKQuantityTypeIdentifierActiveEnergyBurned")
              .value(),
          std::move(predicate), HKStatisticsOptions::cumulativeSum, anchor, oneDay()));
  EXPECT_FALSE(answer.error);
  return answer.collection.value();
}

constexpr const char* kEnergy = R"({"samples": [
  {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-03-09T23:50:00Z",
   "end": "2024-03-10T00:10:00Z", "value": 100},
  {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-03-10T12:00:00Z",
   "end": "2024-03-10T12:00:00Z", "value": 4.184, "unit": "kJ"},
  {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-03-10T13:00:00Z",
   "end": "2024-03-10T14:00:00Z", "value": 7, "metadata": {"HKWasUserEntered": true}}]})";

TEST(StatisticsTest, ProratesAcrossIntervalsAndYieldsEmptyOnesWithoutASum) {
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(kEnergy)});
  const auto collection = dailyEnergy(utcDate(2024, 3, 10));
  const auto days = intervals(collection, utcDate(2024, 3, 9, 12), utcDate(2024, 3, 11, 23));
  ASSERT_EQ(days.size(), 3u);
  EXPECT_EQ(days[0].start, utcDate(2024, 3, 9));
  EXPECT_EQ(days[0].end, utcDate(2024, 3, 10));
  EXPECT_DOUBLE_EQ(days[0].kcal.value(), 50.0);            // half of the midnight sample
  EXPECT_DOUBLE_EQ(days[1].kcal.value(), 50.0 + 1.0 + 7);  // the rest, 1 kcal in kJ, the 7
  EXPECT_FALSE(days[2].kcal);                              // no data: no sum, not 0

  // The hand-entered sample drops out when the predicate says so.
  const auto filtered = dailyEnergy(
      utcDate(2024, 3, 10), NSPredicate::metadataValueIsNotYes(HKMetadataKeyWasUserEntered));
  EXPECT_DOUBLE_EQ(
      intervals(filtered, utcDate(2024, 3, 10), utcDate(2024, 3, 10, 23, 59, 59))[0].kcal.value(),
      51.0);
}

TEST(StatisticsTest, DayIntervalsFollowTheDeviceCalendarAcrossAClockChange) {
  testing::TestDevice device(
      {.timeZone = "Europe/Berlin", .healthDatabase = testing::databaseFromJson(kEnergy)});
  const Date anchor = device.localDate(2024, 3, 30);
  const auto collection = dailyEnergy(anchor);
  // 31 March 2024 in Berlin has 23 hours.
  const auto days =
      intervals(collection, device.localDate(2024, 3, 31, 12), device.localDate(2024, 3, 31, 12));
  ASSERT_EQ(days.size(), 1u);
  EXPECT_EQ(days[0].start, device.localDate(2024, 3, 31));
  EXPECT_DOUBLE_EQ(days[0].end.timeIntervalSince(days[0].start), 23 * 3600.0);
  // Stepping backwards from the anchor works as well.
  const auto earlier = intervals(collection, device.localDate(2024, 3, 10, 0, 30),
                                 device.localDate(2024, 3, 10, 0, 30));
  ASSERT_EQ(earlier.size(), 1u);
  EXPECT_EQ(earlier[0].start, device.localDate(2024, 3, 10));
}

TEST(StatisticsTest, ZeroLengthSamplesCountWhereTheyStart) {
  const std::vector<SummableSample> samples{{utcDate(2024, 3, 10), utcDate(2024, 3, 10), 5, {}}};
  EXPECT_EQ(CumulativeSum::over(samples, utcDate(2024, 3, 10), utcDate(2024, 3, 11)), 5.0);
  EXPECT_EQ(CumulativeSum::over(samples, utcDate(2024, 3, 9), utcDate(2024, 3, 10)), std::nullopt);
}

TEST(HealthStoreConcurrencyTest, AnswersArriveOffTheCallerThreadWhileManyThreadsAsk) {
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(kEnergy)});
  const auto type =
      HKObjectType::quantityTypeForIdentifier("HKQuantityTypeIdentifierActiveEnergyBurned").value();
  std::vector<std::thread> askers;
  std::atomic<int> offThread{0};
  for (int t = 0; t < 4; ++t) {
    askers.emplace_back([&] {
      const HKHealthStore store;  // one store object per asker, one database behind them
      for (int i = 0; i < 20; ++i) {
        const auto answer = testing::runSampleQuery(store, type, std::nullopt);
        if (answer.samples && answer.samples->size() == 3 && !answer.answeredOnCallerThread) {
          ++offThread;
        }
      }
    });
  }
  for (auto& asker : askers) {
    asker.join();
  }
  EXPECT_EQ(offThread.load(), 80);
}

}  // namespace
}  // namespace velk::platform
