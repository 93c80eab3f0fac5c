// The health-store layer: day sums and sample queries through the provider, the library's error
// cases and data types, the day windows of the predicate builder, and truncation to integers.
#include <gtest/gtest.h>

#include <cmath>

#include "healthstore/AppleHealthErrors.h"
#include "healthstore/AppleHealthProvider.h"
#include "healthstore/ExtractionErrors.h"
#include "healthstore/HealthDataType.h"
#include "healthstore/TruncatedInteger.h"
#include "healthstore/VelkPredicateBuilder.h"
#include "ingest/StoreFile.h"
#include "support/StoreFixture.h"
#include "support/TestDevice.h"

namespace velk {
namespace {

using platform::HKObjectType;
using platform::HKUnit;
using testing::utcDate;

// The day sum as the step and calorie readers ask for it: the device's day of `date`, anchored at
// midnight, enumerated from 00:00:00 to 23:59:59; the provider must complete exactly once.
std::optional<Result<std::int64_t>> daySum(const char* identifier, HKUnit unit, Date date) {
  const AppleHealthProvider provider;
  const VelkPredicateBuilder builder;
  platform::HKStatisticsCollectionQuery query(
      HKObjectType::quantityTypeForIdentifier(identifier).value(),
      builder.getPredicate(date, 23, 59, 59, 23.9), platform::HKStatisticsOptions::cumulativeSum,
      platform::Calendar::current().dateBySettingHour(0, date).value(),
      platform::DateComponents{{}, {}, 1, {}, {}, {}, {}});
  testing::Completions<std::vector<Result<std::int64_t>>> answer;
  const Date start = builder.getDate(date, 0, 0, 0).value();
  const Date end = builder.getDate(date, 23, 59, 59).value();
  query.initialResultsHandler = [&provider, start, end, unit, set = answer.completion()](
                                    const platform::HKStatisticsCollectionQuery& q,
                                    std::optional<platform::HKStatisticsCollection> collection,
                                    std::optional<Error> error) {
    std::vector<Result<std::int64_t>> results;
    provider.getCollectionSum(q, collection, error, start, end, unit,
                              [&results](Result<std::int64_t> r) { results.push_back(r); });
    set(results);
  };
  provider.healthStore->executeQuery(std::move(query));
  const auto results = answer.wait().value_or(std::vector<Result<std::int64_t>>{});
  EXPECT_EQ(results.size(), 1u) << identifier;
  return results.size() == 1 ? std::optional(results[0]) : std::nullopt;
}

// The samples of the provider's sample query for steps, or nothing when the query failed.
std::optional<platform::HKSampleList> steps(std::optional<Date> start,
                                            std::optional<std::int64_t> limit) {
  testing::Completions<std::optional<platform::HKSampleList>> answer;
  AppleHealthProvider().getSamples(
      *HKObjectType::quantityTypeForIdentifier("HKQuantityTypeIdentifierStepCount"),
      platform::HKQuery::predicateForSamples(start, std::nullopt), limit,
      [set = answer.completion()](
          const platform::HKSampleQuery&, std::optional<platform::HKSampleList> samples,
          std::optional<Error> error) { set(error ? std::nullopt : samples); });
  return answer.wait().value_or(std::nullopt);
}

// Flights fail with a store error, distances answer with nothing at all, stand time is unknown.
std::shared_ptr<platform::InMemoryHealthDatabase> database() {
  auto parsed = ingest::StoreFile::parse(R"({
    "unknown_types": ["HKQuantityTypeIdentifierAppleStandTime"],
    "query_errors": {"HKQuantityTypeIdentifierFlightsClimbed": {"code": 3, "message": "No"}},
    "samples": [
  {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-03-10T09:00:00Z",
   "end": "2024-03-10T10:00:00Z", "value": 12.9},
  {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T09:00:00Z",
   "end": "2024-03-10T09:01:00Z", "value": 0.4},
  {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T00:01:00Z",
   "end": "2024-03-10T00:02:00Z", "value": 1000},
  {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T10:00:00Z",
   "end": "2024-03-10T10:01:00Z", "value": 500, "metadata": {"HKWasUserEntered": true}}]})",
                                         "test.json");
  EXPECT_TRUE(parsed.isSuccess());
  auto contents = std::move(parsed).value();
  contents.settings.typesAnsweringWithoutSamples.insert(
      "HKQuantityTypeIdentifierDistanceWalkingRunning");
  return ingest::StoreFile::makeDatabase(contents);
}

TEST(AppleHealthProviderTest, DaySumsAreTruncatedAndStoreAnswersWithoutASumAreErrors) {
  const auto store = database();
  testing::TestDevice device({.healthDatabase = store});
  const Date day = utcDate(2024, 3, 10, 8, 30);
  const auto kcal = HKUnit::kilocalorieUnit();
  EXPECT_EQ(daySum("HKQuantityTypeIdentifierActiveEnergyBurned", kcal, day)->value(), 12);
  // The early-morning and hand-entered samples lie outside the read.
  EXPECT_EQ(daySum("HKQuantityTypeIdentifierStepCount", HKUnit::countUnit(), day)->value(), 0);

  const auto errorOf = [&](const char* identifier, HKUnit unit) {
    const auto result = daySum(identifier, unit, day).value();
    EXPECT_TRUE(result.isFailure()) << identifier;
    return result.isFailure() ? result.error() : Error("none", 0, "");
  };
  EXPECT_TRUE(errorIs(errorOf("HKQuantityTypeIdentifierBasalEnergyBurned", kcal),
                      AppleHealthErrors::sumQuantityNull));
  EXPECT_TRUE(
      errorOf("HKQuantityTypeIdentifierFlightsClimbed", HKUnit::countUnit())
          .isSameInstance(store->queryError("HKQuantityTypeIdentifierFlightsClimbed").value()));
  EXPECT_TRUE(
      errorIs(errorOf("HKQuantityTypeIdentifierDistanceWalkingRunning", HKUnit::meterUnit()),
              AppleHealthErrors::collectionHeatlhDataNull));
}

TEST(AppleHealthProviderTest, SampleQueriesAreNewestFirstAndEmptyIsNotAnError) {
  testing::TestDevice device({.healthDatabase = database()});
  const auto newest = steps(std::nullopt, 2);
  ASSERT_TRUE(newest);
  ASSERT_EQ(newest->size(), 2u);
  EXPECT_EQ((*newest)[0]->startDate(), utcDate(2024, 3, 10, 10));
  EXPECT_EQ((*newest)[1]->startDate(), utcDate(2024, 3, 10, 9));
  const auto empty = steps(utcDate(2025, 1, 1), std::nullopt);
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->empty());
}

TEST(LibraryErrorsTest, CasesBridgeWithTheirPositionAndPublishedText) {
  const Error missingCollection = makeError(AppleHealthErrors::collectionHeatlhDataNull);
  EXPECT_EQ(missingCollection.domain(), "VelkAppleHealth.AppleHealthErrors");
  EXPECT_EQ(missingCollection.code(), 1);
  EXPECT_EQ(missingCollection.message(), "the apple health data is nil");
  EXPECT_EQ(makeError(AppleHealthErrors::healthKitNotavailable).message(),
            "apple health kit is not avaible un your device");
  EXPECT_EQ(makeError(AppleHealthErrors::emptySamples).code(), 5);
  EXPECT_EQ(makeError(AppleHealthErrors::emptySamples).message(),
            "Any sample was found for the data type");
  EXPECT_EQ(appleHealthErrorOf(makeError(AppleHealthErrors::predicateErrorDate)),
            AppleHealthErrors::predicateErrorDate);
  EXPECT_FALSE(errorIs(Error("com.apple.healthkit", 2, "The value of the sum queantity is nil"),
                       AppleHealthErrors::sumQuantityNull));
  const Error sleep = makeError(ExtractionErrors::sleepDataEmpty);
  EXPECT_EQ(sleep.domain(), "VelkAppleHealth.ExtractionErrors");
  EXPECT_EQ(sleep.code(), 0);
  EXPECT_EQ(sleep.message(), "The user does not have sleep data available");
}

TEST(HealthDataTypeTest, CasesKeepTheirOrderNamesAndStoreTypes) {
  testing::TestDevice device({.healthDatabase = database()});
  const auto& all = allHealthDataTypes();
  EXPECT_EQ(rawValue(all[20]), "workout");
  EXPECT_EQ(rawValue(all[21]), "sleepAnalysis");
  EXPECT_EQ(rawValue(all[22]), "vo2Max");
  EXPECT_EQ(healthDataTypeFromRawValue("vo2Max"), HealthDataType::vo2Max);
  EXPECT_FALSE(healthDataTypeFromRawValue("VO2Max"));
  int known = 0;
  for (const HealthDataType type : all) {
    EXPECT_EQ(healthDataTypeFromRawValue(rawValue(type)), type);
    if (const auto object = objectType(type)) {
      EXPECT_EQ(object->identifier(), storeIdentifier(type));
      EXPECT_EQ(object->kind(), objectKind(type));
      ++known;
    }
  }
  EXPECT_EQ(known, 25);
  EXPECT_FALSE(objectType(HealthDataType::appleStandTime));
  EXPECT_EQ(objectType(HealthDataType::biologicalSex)->kind(),
            platform::HKObjectKind::characteristic);
}

TEST(TruncatedIntegerDeathTest, TruncatesTowardZeroAndStopsOnValuesThatDoNotFit) {
  EXPECT_EQ(truncatedInt64(74.47), 74);
  EXPECT_EQ(truncatedInt64(-0.9), 0);
  EXPECT_EQ(truncatedInt64(-9223372036854775808.0), INT64_MIN);
  EXPECT_DEATH(truncatedInt64(9223372036854775808.0), "outside the representable range");
  EXPECT_DEATH(truncatedInt64(std::nan("")), "not finite");
}

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
