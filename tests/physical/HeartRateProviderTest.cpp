// The heart-rate reductions on their own: the fixed starting points of the extremes, the order of
// the granular lists, and store errors handed on as the very same error.

#include <future>
#include <memory>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "physical/PhysicalTestSupport.h"
#include "velk/healthstore/AppleHealthErrors.h"
#include "velk/physical/VelkHRVProvider.h"
#include "velk/physical/VelkHeartRateProvider.h"

namespace velk::testing {
namespace {

// Runs `start(completion)` and waits on the store's queue for the one answer.
template <class Value, class Start>
Result<Value> awaitAnswer(Start start) {
  std::promise<Result<Value>> answer;
  auto future = answer.get_future();
  start([&answer](Result<Value> result) { answer.set_value(std::move(result)); });
  return future.get();
}

TEST(HeartRateProviderTest, ExtremesStartFromZeroAndOneThousand) {
  PhysicalStore store(R"({"samples": [
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T09:00:00Z", "end": "2024-03-10T09:00:00Z", "value": 1200},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-11T09:00:00Z", "end": "2024-03-11T09:00:00Z", "value": -5},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-11T10:00:00Z", "end": "2024-03-11T10:00:00Z", "value": -7.5}
    ]})");
  auto provider = std::make_shared<VelkHeartRateProvider>();

  const auto high = awaitAnswer<VelkHeartRateData>(
      [&](auto completion) { provider->getHeartRate(utcDate(2024, 3, 10, 12), completion); });
  ASSERT_TRUE(high.isSuccess());
  EXPECT_EQ(high.value().maxHeartRate, 1200);
  EXPECT_EQ(high.value().minHeartRate, 1000);
  EXPECT_EQ(high.value().avgHeartRate, 1200);

  // All values negative: the maximum stays 0, the average truncates toward zero.
  const auto negative = awaitAnswer<VelkHeartRateData>(
      [&](auto completion) { provider->getHeartRate(utcDate(2024, 3, 11, 12), completion); });
  ASSERT_TRUE(negative.isSuccess());
  EXPECT_EQ(negative.value().maxHeartRate, 0);
  EXPECT_EQ(negative.value().minHeartRate, -7);
  EXPECT_EQ(negative.value().avgHeartRate, -6);
  // Newest first, as the store returned them.
  ASSERT_EQ(negative.value().granular.size(), 2u);
  EXPECT_EQ(negative.value().granular[0].value, -7.5);
  EXPECT_EQ(negative.value().granular[0].startDate, utcDate(2024, 3, 11, 10));
}

TEST(HeartRateProviderTest, EachKindFailsOnItsOwn) {
  PhysicalStore store(R"({
    "query_errors": {"HKQuantityTypeIdentifierHeartRateVariabilitySDNN": {"code": 6, "message": "Protected health data is inaccessible"}},
    "samples": [
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T09:00:00Z", "end": "2024-03-10T09:00:00Z", "value": 70, "unit": "count/s"}
    ]})");
  auto heartRate = std::make_shared<VelkHeartRateProvider>();
  auto hrv = std::make_shared<VelkHRVProvider>();
  const Date date = utcDate(2024, 3, 10, 12);

  // Heart rate converts to beats per minute; the day has no resting samples.
  const auto rate = awaitAnswer<VelkHeartRateData>(
      [&](auto completion) { heartRate->getHeartRate(date, completion); });
  ASSERT_TRUE(rate.isSuccess());
  EXPECT_EQ(rate.value().avgHeartRate, 4200);
  const auto resting = awaitAnswer<VelkRestingHrData>(
      [&](auto completion) { heartRate->getRestingHeartRate(date, completion); });
  ASSERT_TRUE(resting.isFailure());
  EXPECT_TRUE(errorIs(resting.error(), AppleHealthErrors::emptySamples));

  // The store's own error reaches the caller as the same object, each time.
  const auto first =
      awaitAnswer<VelkHRVData>([&](auto completion) { hrv->getHRV(date, completion); });
  const auto second =
      awaitAnswer<VelkHRVData>([&](auto completion) { hrv->getHRV(date, completion); });
  ASSERT_TRUE(first.isFailure());
  ASSERT_TRUE(second.isFailure());
  EXPECT_EQ(first.error().code(), 6);
  EXPECT_TRUE(first.error().isSameInstance(second.error()));
}

TEST(HeartRateProviderTest, UnknownTypeFailsBeforeAnyQuery) {
  PhysicalStore store(R"({"unknown_types": ["HKQuantityTypeIdentifierRestingHeartRate"]})");
  auto provider = std::make_shared<VelkHeartRateProvider>();
  std::optional<Result<VelkRestingHrData>> answer;
  provider->getRestingHeartRate(utcDate(2024, 3, 10, 12),
                                [&](Result<VelkRestingHrData> result) { answer = result; });
  // Answered on the caller's thread, before the call returned.
  ASSERT_TRUE(answer.has_value());
  EXPECT_TRUE(errorIs(answer->error(), AppleHealthErrors::sampleTypeNotAvailable));
}

}  // namespace
}  // namespace velk::testing
