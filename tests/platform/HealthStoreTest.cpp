#include <gtest/gtest.h>

#include <string>

#include "support/StoreFixture.h"
#include "support/TestDevice.h"
#include "velk/platform/HKHealthStore.h"
#include "velk/platform/HKObjectType.h"
#include "velk/platform/HealthDatabase.h"

namespace velk::platform {
namespace {

using testing::utcDate;

constexpr const char* kSteps = "HKQuantityTypeIdentifierStepCount";
constexpr const char* kSleep = "HKCategoryTypeIdentifierSleepAnalysis";
const NSSortDescriptor kNewestFirst{HKSampleSortIdentifierStartDate, false};

std::string stepSample(int hour, int minute, double value, const char* extra = "") {
  char text[256];
  std::snprintf(text, sizeof text,
                R"({"type": "%s", "start": "2024-03-10T%02d:%02d:00Z",
                    "end": "2024-03-10T%02d:%02d:30Z", "value": %g %s})",
                kSteps, hour, minute, hour, minute, value, extra);
  return text;
}

std::string storeWith(const std::vector<std::string>& samples, const std::string& more = "") {
  std::string text = "{" + more + (more.empty() ? "" : ",") + R"("samples": [)";
  for (std::size_t i = 0; i < samples.size(); ++i) {
    text += (i ? "," : "") + samples[i];
  }
  return text + "]}";
}

std::vector<double> values(const HKSampleList& samples) {
  std::vector<double> result;
  for (const auto& sample : samples) {
    auto quantity = std::dynamic_pointer_cast<const HKQuantitySample>(sample);
    EXPECT_TRUE(quantity);
    result.push_back(quantity ? quantity->quantity().doubleValueForUnit(HKUnit::countUnit()) : -1);
  }
  return result;
}

HKObjectType steps() {
  return HKObjectType::quantityTypeForIdentifier(kSteps).value();
}

TEST(HealthStoreTest, LimitKeepsTheNewestAndEqualStartsKeepStoredOrder) {
  std::vector<std::string> samples;
  for (int i = 0; i < 25; ++i) {
    samples.push_back(stepSample(1 + (i * 7) % 20, i, i));  // stored out of time order
  }
  samples.push_back(stepSample(23, 0, 100));
  samples.push_back(stepSample(23, 0, 101));  // same start as the one before it
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(storeWith(samples))});
  HKHealthStore store;

  const auto ten = testing::runSampleQuery(store, steps(), std::nullopt, 10, {kNewestFirst});
  ASSERT_TRUE(ten.samples);
  ASSERT_EQ(ten.samples->size(), 10u);
  EXPECT_EQ(values(*ten.samples)[0], 100);
  EXPECT_EQ(values(*ten.samples)[1], 101);
  for (std::size_t i = 1; i < ten.samples->size(); ++i) {
    EXPECT_GE((*ten.samples)[i - 1]->startDate(), (*ten.samples)[i]->startDate());
  }
  // Nothing older than the tenth was dropped in favour of a newer one.
  const auto all = testing::runSampleQuery(store, steps(), std::nullopt, 0, {kNewestFirst});
  ASSERT_EQ(all.samples->size(), 27u);
  EXPECT_EQ((*all.samples)[9]->startDate(), (*ten.samples)[9]->startDate());

  const auto stored = testing::runSampleQuery(store, steps(), std::nullopt);
  EXPECT_EQ(values(*stored.samples)[0], 0);  // no sort descriptor: stored order
}

TEST(HealthStoreTest, DatePredicateMatchesOverlapsAndDropsHandEnteredSamples) {
  const std::string store = storeWith({
      stepSample(7, 0, 1),   // 07:00:00-07:00:30, ends before the range
      stepSample(7, 59, 2),  // 07:59:00-07:59:30, ends inside
      stepSample(9, 0, 3),   // starts at the range's end: excluded
      stepSample(8, 30, 4, R"(, "metadata": {"HKWasUserEntered": true})"),
      stepSample(8, 31, 5, R"(, "metadata": {"HKWasUserEntered": false, "other": 1})"),
  });
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(store)});
  HKHealthStore healthStore;
  const auto range =
      HKQuery::predicateForSamples(utcDate(2024, 3, 10, 7, 59, 30), utcDate(2024, 3, 10, 9));
  const auto manual = NSPredicate::metadataValueIsNotYes(HKMetadataKeyWasUserEntered);

  EXPECT_EQ(values(*testing::runSampleQuery(healthStore, steps(), range).samples),
            (std::vector<double>{2, 4, 5}));
  EXPECT_EQ(values(*testing::runSampleQuery(
                        healthStore, steps(),
                        NSCompoundPredicate::andPredicateWithSubpredicates({range, manual}))
                        .samples),
            (std::vector<double>{2, 5}));
  // No start: only "starts before the end" remains.
  EXPECT_EQ(values(*testing::runSampleQuery(
                        healthStore, steps(),
                        HKQuery::predicateForSamples(std::nullopt, utcDate(2024, 3, 10, 8)))
                        .samples),
            (std::vector<double>{1, 2}));
}

TEST(HealthStoreTest, PassesErrorsWrongKindsAndMissingListsThrough) {
  const std::string store = R"({
    "unknown_types": ["HKQuantityTypeIdentifierAppleStandTime"],
    "query_errors": {"HKQuantityTypeIdentifierHeartRate": {"code": 5, "message": "Not determined"}},
    "samples": [{"type": "HKCategoryTypeIdentifierSleepAnalysis", "kind": "quantity",
                 "start": "2024-03-10T01:00:00+01:00", "end": "2024-03-10T02:00:00+01:00",
                 "value": 3, "unit": "count"}]})";
  auto database = testing::databaseFromJson(store);
  testing::TestDevice device({.healthDatabase = database});
  HKHealthStore healthStore;

  EXPECT_FALSE(HKObjectType::quantityTypeForIdentifier("HKQuantityTypeIdentifierAppleStandTime"));
  EXPECT_FALSE(HKObjectType::quantityTypeForIdentifier(kSleep));  // a category identifier
  EXPECT_FALSE(HKObjectType::quantityTypeForIdentifier("HKQuantityTypeIdentifierMadeUp"));
  EXPECT_TRUE(HKObjectType::workoutType());
  EXPECT_TRUE(
      HKObjectType::characteristicTypeForIdentifier("HKCharacteristicTypeIdentifierDateOfBirth"));

  const auto sleep = HKObjectType::categoryTypeForIdentifier(kSleep).value();
  const auto wrongKind = testing::runSampleQuery(healthStore, sleep, std::nullopt);
  ASSERT_EQ(wrongKind.samples->size(), 1u);
  EXPECT_TRUE(std::dynamic_pointer_cast<const HKQuantitySample>(wrongKind.samples->front()));

  const auto heartRate =
      HKObjectType::quantityTypeForIdentifier("HKQuantityTypeIdentifierHeartRate").value();
  const auto first = testing::runSampleQuery(healthStore, heartRate, std::nullopt);
  const auto second = testing::runSampleQuery(healthStore, heartRate, std::nullopt);
  EXPECT_FALSE(first.samples);
  ASSERT_TRUE(first.error && second.error);
  EXPECT_EQ(first.error->domain(), kHealthKitErrorDomain);
  EXPECT_EQ(first.error->code(), 5);
  EXPECT_TRUE(first.error->isSameInstance(*second.error));
}

TEST(HealthStoreTest, AnswersAuthorisationAndCharacteristicsFromTheDatabase) {
  auto database = testing::databaseFromJson(R"({
    "authorization": {"success": false, "error": {"code": 4, "message": "Denied"}},
    "date_of_birth": "1990-06-15", "biological_sex": {"error": {"code": 6, "message": "Locked"}}})");
  testing::TestDevice device({.healthDatabase = database});
  HKHealthStore store;

  testing::Awaited<std::pair<bool, std::optional<Error>>> answer;
  store.requestAuthorization(std::nullopt, {steps(), HKObjectType::workoutType().value()},
                             [set = answer.setter()](bool ok, std::optional<Error> error) {
                               set({ok, std::move(error)});
                             });
  const auto got = answer.get();
  ASSERT_TRUE(got);
  EXPECT_FALSE(got->first);
  ASSERT_TRUE(got->second);
  EXPECT_EQ(got->second->message(), "Denied");
  ASSERT_EQ(database->authorizationRequests().size(), 1u);
  EXPECT_EQ(database->authorizationRequests()[0],
            (std::set<std::string>{kSteps, std::string(HKWorkoutTypeIdentifier)}));

  const auto birth = store.dateOfBirthComponents();
  ASSERT_TRUE(birth.isSuccess());
  DateComponents expected;
  expected.year = 1990;
  expected.month = 6;
  expected.day = 15;
  EXPECT_EQ(birth.value(), expected);
  const auto sex = store.biologicalSex();
  ASSERT_TRUE(sex.isFailure());
  EXPECT_EQ(sex.error().code(), 6);
}

TEST(HealthStoreTest, ADeviceWithoutHealthDataRefusesEverything) {
  testing::TestDevice device;  // no database at all
  EXPECT_FALSE(HKHealthStore::isHealthDataAvailable());
  HKHealthStore store;
  const auto answer = testing::runSampleQuery(store, steps(), std::nullopt);
  ASSERT_TRUE(answer.error);
  EXPECT_EQ(answer.error->code(), 1);
  EXPECT_TRUE(store.biologicalSex().isFailure());
}

}  // namespace
}  // namespace velk::platform
