#include <gtest/gtest.h>

#include <cmath>

#include "support/StoreFixture.h"
#include "support/TestDevice.h"
#include "velk/healthstore/AppleHealthErrors.h"
#include "velk/healthstore/AppleHealthProvider.h"
#include "velk/healthstore/ExtractionErrors.h"
#include "velk/healthstore/HealthDataType.h"
#include "velk/healthstore/TruncatedInteger.h"
#include "velk/healthstore/VelkPredicateBuilder.h"

namespace velk {
namespace {

using platform::HKObjectType;
using platform::HKUnit;
using testing::utcDate;

// The day sum as the step and calorie readers ask for it: the device's day of `date`, anchored at
// midnight, enumerated from 00:00:00 to 23:59:59; every completion the provider makes is kept.
std::vector<Result<std::int64_t>> daySum(const char* identifier, HKUnit unit, Date date) {
  const AppleHealthProvider provider;
  const VelkPredicateBuilder builder;
  const auto type = HKObjectType::quantityTypeForIdentifier(identifier).value();
  platform::DateComponents oneDay;
  oneDay.day = 1;
  platform::HKStatisticsCollectionQuery query(
      type, builder.getPredicate(date, 23, 59, 59, 23.9),
      platform::HKStatisticsOptions::cumulativeSum,
      platform::Calendar::current().dateBySettingHour(0, date).value(), oneDay);
  testing::Awaited<std::vector<Result<std::int64_t>>> answer;
  const Date start = builder.getDate(date, 0, 0, 0).value();
  const Date end = builder.getDate(date, 23, 59, 59).value();
  query.initialResultsHandler = [&provider, start, end, unit, set = answer.setter()](
                                    const platform::HKStatisticsCollectionQuery& q,
                                    std::optional<platform::HKStatisticsCollection> collection,
                                    std::optional<Error> error) {
    std::vector<Result<std::int64_t>> results;
    provider.getCollectionSum(q, collection, error, start, end, unit,
                              [&results](Result<std::int64_t> r) { results.push_back(r); });
    set(results);
  };
  provider.healthStore->executeQuery(std::move(query));
  return answer.get().value_or(std::vector<Result<std::int64_t>>{});
}

constexpr const char* kStore = R"({"samples": [
  {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-03-10T09:00:00Z",
   "end": "2024-03-10T10:00:00Z", "value": 12.9},
  {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T09:00:00Z",
   "end": "2024-03-10T09:01:00Z", "value": 0.4},
  {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T00:01:00Z",
   "end": "2024-03-10T00:02:00Z", "value": 1000},
  {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T10:00:00Z",
   "end": "2024-03-10T10:01:00Z", "value": 500, "metadata": {"HKWasUserEntered": true}}]})";

TEST(AppleHealthProviderTest, DaySumsAreTruncatedAndAbsentSumsAreErrors) {
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(kStore)});
  const Date day = utcDate(2024, 3, 10, 8, 30);

  const auto energy =
      daySum("HKQuantityTypeIdentifierActiveEnergyBurned", HKUnit::kilocalorieUnit(), day);
  ASSERT_EQ(energy.size(), 1u);
  EXPECT_EQ(energy[0].value(), 12);
  // The early-morning and hand-entered samples lie outside the read.
  const auto steps = daySum("HKQuantityTypeIdentifierStepCount", HKUnit::countUnit(), day);
  ASSERT_EQ(steps.size(), 1u);
  EXPECT_EQ(steps[0].value(), 0);

  const auto empty =
      daySum("HKQuantityTypeIdentifierBasalEnergyBurned", HKUnit::kilocalorieUnit(), day);
  ASSERT_EQ(empty.size(), 1u);
  ASSERT_TRUE(empty[0].isFailure());
  EXPECT_TRUE(errorIs(empty[0].error(), AppleHealthErrors::sumQuantityNull));
}

TEST(AppleHealthProviderTest, StoreErrorsAndMissingCollectionsReachTheCompletion) {
  platform::HealthDatabaseSettings settings;
  settings.queryErrors.emplace("HKQuantityTypeIdentifierFlightsClimbed",
                               Error("com.apple.healthkit", 3, "No"));
  settings.typesAnsweringWithoutSamples.insert("HKQuantityTypeIdentifierStepCount");
  auto database = std::make_shared<platform::InMemoryHealthDatabase>(
      settings, platform::Characteristics{}, std::vector<platform::SampleRecord>{});
  testing::TestDevice device({.healthDatabase = database});
  const Date day = utcDate(2024, 3, 10, 8, 30);

  const auto failed = daySum("HKQuantityTypeIdentifierFlightsClimbed", HKUnit::countUnit(), day);
  ASSERT_EQ(failed.size(), 1u);
  ASSERT_TRUE(failed[0].isFailure());
  EXPECT_TRUE(failed[0].error().isSameInstance(
      database->queryError("HKQuantityTypeIdentifierFlightsClimbed").value()));

  const auto none = daySum("HKQuantityTypeIdentifierStepCount", HKUnit::countUnit(), day);
  ASSERT_EQ(none.size(), 1u);
  EXPECT_TRUE(errorIs(none[0].error(), AppleHealthErrors::collectionHeatlhDataNull));
}

TEST(AppleHealthProviderTest, SampleQueriesAreNewestFirstAndEmptyIsNotAnError) {
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(kStore)});
  const AppleHealthProvider provider;
  const auto steps = HKObjectType::quantityTypeForIdentifier("HKQuantityTypeIdentifierStepCount");
  testing::Awaited<std::optional<platform::HKSampleList>> answer;
  provider.getSamples(*steps, platform::HKQuery::predicateForSamples(std::nullopt, std::nullopt), 2,
                      [set = answer.setter()](const platform::HKSampleQuery&,
                                              std::optional<platform::HKSampleList> samples,
                                              std::optional<Error>) { set(samples); });
  const auto newest = answer.get().value();
  ASSERT_EQ(newest->size(), 2u);
  EXPECT_EQ((*newest)[0]->startDate(), utcDate(2024, 3, 10, 10));
  EXPECT_EQ((*newest)[1]->startDate(), utcDate(2024, 3, 10, 9));

  testing::Awaited<std::optional<platform::HKSampleList>> nothing;
  provider.getSamples(*steps,
                      platform::HKQuery::predicateForSamples(utcDate(2025, 1, 1), std::nullopt),
                      std::nullopt,
                      [set = nothing.setter()](const platform::HKSampleQuery&,
                                               std::optional<platform::HKSampleList> samples,
                                               std::optional<Error> error) {
                        EXPECT_FALSE(error);
                        set(samples);
                      });
  const auto empty = nothing.get().value();
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->empty());
}

TEST(LibraryErrorsTest, CasesBridgeWithTheirPositionAndPublishedText) {
  const Error heatlh = makeError(AppleHealthErrors::collectionHeatlhDataNull);
  EXPECT_EQ(heatlh.domain(), "VelkAppleHealth.AppleHealthErrors");
  EXPECT_EQ(heatlh.code(), 1);
  EXPECT_EQ(heatlh.message(), "the apple health data is nil");
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
  const auto& all = allHealthDataTypes();
  EXPECT_EQ(rawValue(all[20]), "workout");
  EXPECT_EQ(rawValue(all[21]), "sleepAnalysis");
  EXPECT_EQ(rawValue(all[22]), "vo2Max");
  EXPECT_EQ(healthDataTypeFromRawValue("vo2Max"), HealthDataType::vo2Max);
  EXPECT_FALSE(healthDataTypeFromRawValue("VO2Max"));
  for (const HealthDataType type : all) {
    EXPECT_EQ(healthDataTypeFromRawValue(rawValue(type)), type);
  }

  auto database =
      testing::databaseFromJson(R"({"unknown_types": ["HKQuantityTypeIdentifierAppleStandTime"]})");
  testing::TestDevice device({.healthDatabase = database});
  int known = 0;
  for (const HealthDataType type : all) {
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

}  // namespace
}  // namespace velk
