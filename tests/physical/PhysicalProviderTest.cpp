// The physical summary from store file to document: what is counted, how it is reduced and
// truncated, what a failed read costs, what one provider remembers between requests, and requests
// that overlap on one provider (the concurrency suite runs under ThreadSanitizer).

#include <array>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "healthstore/AppleHealthErrors.h"
#include "physical/VelkHRVProvider.h"
#include "physical/VelkHeartRateProvider.h"
#include "physical/VelkPhysicalProvider.h"
#include "platform/HealthDatabase.h"
#include "support/StoreFixture.h"
#include "support/TestDevice.h"
#include "velk/DebugOutput.h"
#include "velk/PhysicalDocument.h"

namespace velk::testing {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

constexpr const char* kLastPhysicalDate = "velk_last_physical_date_extraction";

/// A device (in `timeZone`) whose health database is the store file `storeJson`.
class PhysicalStore {
 public:
  explicit PhysicalStore(const std::string& storeJson, std::string timeZone = "UTC")
      : PhysicalStore(databaseFromJson(storeJson), std::move(timeZone)) {}
  PhysicalStore(std::shared_ptr<platform::HealthDatabase> database, std::string timeZone)
      : device_({.timeZone = std::move(timeZone), .healthDatabase = std::move(database)}) {}
  TestDevice& device() { return device_; }

  /// One request on `provider`, run to its completion: the document's
  /// "daily_activity_related_data" and what the request wrote to the debug output.
  struct Answer {
    json daily;
    std::string debugOutput;
    bool completedOnMainQueue = false;
  };
  Answer request(VelkPhysicalProvider& provider, Date date) {
    platform::DebugOutputCapture capture;
    Answer answer;
    bool done = false;
    provider.getPhysicalData(date, [&](Result<VelkPhysicalData> result) {
      answer.completedOnMainQueue = device_.mainQueue().isCurrent();
      ASSERT_TRUE(result.isSuccess());
      answer.daily = result.value().getDictionary()["summaries"]["daily_activity_related_data"];
      done = true;
    });
    EXPECT_TRUE(device_.mainQueue().runUntil([&] { return done; }, std::chrono::seconds(20)));
    answer.debugOutput = capture.text();
    return answer;
  }

 private:
  TestDevice device_;
};

// One read through `get` on `provider`, waited for on the store's queue.
template <class Value, class Provider, class Completion>
Result<Value> read(Provider& provider, void (Provider::*get)(Date, Completion), Date date) {
  std::promise<Result<Value>> answer;
  (provider.*get)(date, [&answer](Result<Value> result) { answer.set_value(std::move(result)); });
  return answer.get_future().get();
}

// One day (2024-03-10, UTC) of everything the summary reads, with the samples that must not count:
// typed in by hand, lying wholly in the day's first 5 min 59 s, or on the day before.
constexpr const char* kFullDay = R"({"samples": [
  {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T08:00:00Z", "end": "2024-03-10T08:10:00Z", "value": 1000.5},
  {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T12:00:00Z", "end": "2024-03-10T12:05:00Z", "value": 234.4},
  {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T09:00:00Z", "end": "2024-03-10T09:05:00Z", "value": 500, "metadata": {"HKWasUserEntered": true}},
  {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T00:01:00Z", "end": "2024-03-10T00:05:00Z", "value": 777},
  {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-09T22:00:00Z", "end": "2024-03-09T22:30:00Z", "value": 3000},
  {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-03-10T10:00:00Z", "end": "2024-03-10T11:00:00Z", "value": 350.6},
  {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-03-10T13:00:00Z", "end": "2024-03-10T13:10:00Z", "value": 90, "metadata": {"HKWasUserEntered": true}},
  {"type": "HKQuantityTypeIdentifierBasalEnergyBurned", "start": "2024-03-10T06:00:00Z", "end": "2024-03-10T22:00:00Z", "value": 1650.7},
  {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T08:00:00Z", "end": "2024-03-10T08:00:00Z", "value": 60},
  {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T09:00:00Z", "end": "2024-03-10T09:00:00Z", "value": 72.5},
  {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T10:00:00Z", "end": "2024-03-10T10:00:00Z", "value": 90.9},
  {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T11:00:00Z", "end": "2024-03-10T11:00:00Z", "value": 190, "metadata": {"HKWasUserEntered": true}},
  {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T00:02:00Z", "end": "2024-03-10T00:03:00Z", "value": 40},
  {"type": "HKQuantityTypeIdentifierRestingHeartRate", "start": "2024-03-10T07:00:00Z", "end": "2024-03-10T07:00:00Z", "value": 55.9},
  {"type": "HKQuantityTypeIdentifierRestingHeartRate", "start": "2024-03-10T19:00:00Z", "end": "2024-03-10T19:00:00Z", "value": 56.9},
  {"type": "HKQuantityTypeIdentifierHeartRateVariabilitySDNN", "start": "2024-03-10T03:00:00Z", "end": "2024-03-10T03:00:00Z", "value": 40.8},
  {"type": "HKQuantityTypeIdentifierHeartRateVariabilitySDNN", "start": "2024-03-10T04:00:00Z", "end": "2024-03-10T04:00:00Z", "value": 45.0}
]})";

TEST(PhysicalProviderTest, FullDayIsCountedReducedAndTruncated) {
  PhysicalStore store(kFullDay);
  auto provider = std::make_shared<VelkPhysicalProvider>();
  const Date date = utcDate(2024, 3, 10, 8, 30);

  const auto answer = store.request(*provider, date);

  EXPECT_TRUE(answer.completedOnMainQueue);
  EXPECT_EQ(answer.debugOutput, "");
  const json& daily = answer.daily;
  EXPECT_EQ(daily["distance_data"]["steps_per_day_number"], 1234);
  EXPECT_EQ(daily["calories_data"], json::parse(R"({"calories_net_intake_kilocalories": null,
                            "calories_expenditure_kilocalories": null,
                            "calories_net_active_kilocalories": 350,
                            "calories_basal_metabolic_rate_kilocalories": 1650})"));
  EXPECT_EQ(daily["heart_rate_data"],
            json::parse(R"({"hr_max_bpm": 90, "hr_minimum_bpm": 60, "hr_avg_bpm": 74,
                            "hr_resting_bpm": 56, "hr_granular_data_bpm": null,
                            "hrv_avg_rmssd_number": null, "hrv_avg_sdnn_number": 42,
                            "hrv_sdnn_granular_data_number": null,
                            "hrv_rmssd_granular_data_number": null})"));
  EXPECT_EQ(store.device().userDefaults().date(kLastPhysicalDate), date);

  // The builder keeps the unrounded HRV average; only the document truncates it.
  ASSERT_TRUE(provider->velkPhysicalBuilder.hrvData().has_value());
  EXPECT_DOUBLE_EQ(provider->velkPhysicalBuilder.hrvData()->avgValue, 42.9);
}

TEST(PhysicalProviderTest, EmptyDayIsStillDeliveredWithEveryReadReported) {
  PhysicalStore store(R"({"samples": []})");
  auto provider = std::make_shared<VelkPhysicalProvider>();
  const Date date = utcDate(2024, 3, 10, 23, 0);

  const auto answer = store.request(*provider, date);

  // Every value absent; the metadata still names the source and one demographic record.
  VelkPhysicalData nothingKnown;
  auto& metadata = nothingKnown.summaries.dailyActivityRelatedData.metadata;
  metadata.datetime = date;
  metadata.sourcesOfData = {"Apple Health"};
  metadata.userDemographics = {UserDemographic{}};
  EXPECT_EQ(answer.daily, nothingKnown.getDictionary()["summaries"]["daily_activity_related_data"]);
  // Steps and calories find no sum; heart rate, resting heart rate and HRV find no samples.
  EXPECT_THAT(answer.debugOutput, HasSubstr("\"The value of the sum queantity is nil\""));
  EXPECT_THAT(answer.debugOutput, HasSubstr("\"Any sample was found for the data type\""));
  EXPECT_EQ(std::count(answer.debugOutput.begin(), answer.debugOutput.end(), '\n'), 5);
  EXPECT_EQ(store.device().userDefaults().date(kLastPhysicalDate), date);
}

TEST(PhysicalProviderTest, OneFailingEnergyTypeNullsBothCalorieKeys) {
  // Active energy fails with a query error, or finds no sum; the steps beside it still count.
  const std::string samples = R"("samples": [
      {"type": "HKQuantityTypeIdentifierBasalEnergyBurned", "start": "2024-03-10T10:00:00Z", "end": "2024-03-10T11:00:00Z", "value": 1600},
      {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T10:00:00Z", "end": "2024-03-10T11:00:00Z", "value": 8000}])";
  for (
      const std::string& store :
      {R"({"query_errors": {"HKQuantityTypeIdentifierActiveEnergyBurned": {"code": 5, "message": "Authorization not determined"}}, )" +
           samples + "}",
       "{" + samples + "}"}) {
    PhysicalStore failing(store);
    auto provider = std::make_shared<VelkPhysicalProvider>();
    auto answer = failing.request(*provider, utcDate(2024, 3, 10, 12));
    EXPECT_TRUE(answer.daily["calories_data"]["calories_net_active_kilocalories"].is_null());
    EXPECT_TRUE(
        answer.daily["calories_data"]["calories_basal_metabolic_rate_kilocalories"].is_null());
    EXPECT_EQ(answer.daily["distance_data"]["steps_per_day_number"], 8000);
    EXPECT_EQ(provider->velkPhysicalBuilder.caloriesData(), std::nullopt);
    EXPECT_EQ(
        answer.debugOutput.find("Code=5 \"Authorization not determined\"") != std::string::npos,
        store.starts_with("{\"query_errors"));
  }
}

TEST(PhysicalProviderDeathTest, ActivePlusBasalBeyondTheIntegerRangeStops) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // the store answers on threads of its own
  // Each day sum fits in 64 bits; their total does not, and is never wrapped around. Every reader
  // refuses such values, so the samples go into the database directly: the library's own rule.
  const auto energy = [](const char* type) {
    platform::SampleRecord record;
    record.type = type;
    record.value = 5e18;
    record.unit = "kcal";
    record.start = utcDate(2024, 3, 10, 10);
    record.end = utcDate(2024, 3, 10, 11);
    return record;
  };
  EXPECT_DEATH(
      {
        PhysicalStore store(std::make_shared<platform::InMemoryHealthDatabase>(
                                platform::HealthDatabaseSettings{}, platform::Characteristics{},
                                std::vector{energy("HKQuantityTypeIdentifierActiveEnergyBurned"),
                                            energy("HKQuantityTypeIdentifierBasalEnergyBurned")}),
                            "UTC");
        auto provider = std::make_shared<VelkPhysicalProvider>();
        store.request(*provider, utcDate(2024, 3, 10, 12));
      },
      "overflow");
}

TEST(PhysicalProviderTest, LaterFailedReadsReportTheEarlierValues) {
  // Steps and heart rate on the 10th only; resting heart rate on the 11th only.
  PhysicalStore store(R"({"samples": [
      {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T10:00:00Z", "end": "2024-03-10T11:00:00Z", "value": 8000},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T10:00:00Z", "end": "2024-03-10T10:00:00Z", "value": 60},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T11:00:00Z", "end": "2024-03-10T11:00:00Z", "value": 100},
      {"type": "HKQuantityTypeIdentifierRestingHeartRate", "start": "2024-03-11T07:00:00Z", "end": "2024-03-11T07:00:00Z", "value": 52}
    ]})");
  auto provider = std::make_shared<VelkPhysicalProvider>();

  store.request(*provider, utcDate(2024, 3, 10, 12));
  const auto second = store.request(*provider, utcDate(2024, 3, 11, 12));
  EXPECT_EQ(second.daily["distance_data"]["steps_per_day_number"], 8000);
  EXPECT_EQ(second.daily["heart_rate_data"]["hr_max_bpm"], 100);
  EXPECT_EQ(second.daily["heart_rate_data"]["hr_minimum_bpm"], 60);
  EXPECT_EQ(second.daily["heart_rate_data"]["hr_resting_bpm"], 52);

  // A fresh provider has no memory of either day.
  auto fresh = std::make_shared<VelkPhysicalProvider>();
  const auto third = store.request(*fresh, utcDate(2024, 3, 12, 12));
  EXPECT_TRUE(third.daily["distance_data"]["steps_per_day_number"].is_null());
}

TEST(PhysicalProviderTest, DaySumsCoverTheCalendarDayWhateverTheHourAsked) {
  // A day's sums run from its first instant to the next day's first instant; a sample across
  // either midnight counts with the share of its time inside; each sum is truncated once.
  struct Day {
    int month, day;
    std::vector<std::array<int, 3>> timesAsked;  // local hour, minute, second
    int steps, active, basal;
  };
  const auto expectDays = [](PhysicalStore& store, const std::vector<Day>& days) {
    for (const Day& day : days) {
      for (const auto& [hour, minute, second] : day.timesAsked) {
        auto provider = std::make_shared<VelkPhysicalProvider>();
        const auto answer = store.request(
            *provider, store.device().localDate(2024, day.month, day.day, hour, minute, second));
        const json& calories = answer.daily["calories_data"];
        const std::string asked =
            std::to_string(day.day) + " at " + std::to_string(hour) + ":" + std::to_string(minute);
        EXPECT_EQ(answer.daily["distance_data"]["steps_per_day_number"], day.steps) << asked;
        EXPECT_EQ(calories["calories_net_active_kilocalories"], day.active) << asked;
        EXPECT_EQ(calories["calories_basal_metabolic_rate_kilocalories"], day.basal) << asked;
      }
    }
  };
  // Europe/Berlin, 10 March 2024. Steps: 100 of the 700 from 23:00 the day before to 00:10,
  // 100.6, and 100 of the 600 from 23:50 to 00:50 the day after: 300.6. Active: 100.7 + 200.7.
  // Basal: half of the 1,440.9 from noon to noon the next day.
  PhysicalStore berlin(R"({"samples": [
      {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-09T23:00:00+01:00", "end": "2024-03-10T00:10:00+01:00", "value": 700},
      {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T10:00:00+01:00", "end": "2024-03-10T10:10:00+01:00", "value": 100.6},
      {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T23:50:00+01:00", "end": "2024-03-11T00:50:00+01:00", "value": 600},
      {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-03-10T00:10:00+01:00", "end": "2024-03-10T00:20:00+01:00", "value": 100.7},
      {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-03-10T10:00:00+01:00", "end": "2024-03-10T10:20:00+01:00", "value": 200.7},
      {"type": "HKQuantityTypeIdentifierBasalEnergyBurned", "start": "2024-03-10T12:00:00+01:00", "end": "2024-03-11T12:00:00+01:00", "value": 1440.9}
    ]})",
                       "Europe/Berlin");
  const std::vector<std::array<int, 3>> allDay{{0, 0, 30}, {0, 30, 0}, {0, 59, 0},
                                               {8, 30, 0}, {12, 0, 0}, {23, 59, 0}};
  expectDays(berlin, {{3, 10, allDay, 300, 301, 720}});
  // America/Santiago skips the midnight after 7 September 2024: that day has 23 hours, and the
  // 8th begins at 01:00 (-03:00), the moment that was 00:00 (-04:00). The 7th: 100 of the 700,
  // 600.9, 100 of the 600 that runs an hour to 00:50 (-04:00) = 01:50 (-03:00); active 40.4 of
  // the 60.6 across its first midnight and 15.15 of the 30.3 across its last; basal 12 of the 23
  // hours of 48.9. The 8th: the rest of those three.
  PhysicalStore santiago(R"({"samples": [
      {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-09-06T23:00:00-04:00", "end": "2024-09-07T00:10:00-04:00", "value": 700},
      {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-09-07T10:00:00-04:00", "end": "2024-09-07T10:10:00-04:00", "value": 600.9},
      {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-09-07T23:50:00-04:00", "end": "2024-09-08T01:50:00-03:00", "value": 600},
      {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-09-06T23:50:00-04:00", "end": "2024-09-07T00:20:00-04:00", "value": 60.6},
      {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-09-07T23:30:00-04:00", "end": "2024-09-08T01:30:00-03:00", "value": 30.3},
      {"type": "HKQuantityTypeIdentifierBasalEnergyBurned", "start": "2024-09-07T12:00:00-04:00", "end": "2024-09-08T12:00:00-03:00", "value": 48.9}
    ]})",
                         "America/Santiago");
  expectDays(santiago, {{9, 7, {{0, 0, 30}, {0, 30, 0}, {12, 0, 0}, {23, 59, 0}}, 800, 55, 25},
                        {9, 8, {{1, 30, 0}, {12, 0, 0}}, 500, 15, 23}});
}

// Each kind of heart data is read on its own: heart rate in beats per minute with extremes that
// start from 0 and 1,000, resting heart rate that may find nothing, HRV that fails with the
// store's own error. A category sample under a quantity type empties the heart rates (the whole
// list is unusable) while HRV leaves the odd entry out.
TEST(HeartRateProviderTest, EachKindIsReadReducedAndFailsOnItsOwn) {
  PhysicalStore store(R"({
    "query_errors": {"HKQuantityTypeIdentifierHeartRateVariabilitySDNN": {"code": 6, "message": "Protected health data is inaccessible"}},
    "samples": [
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-09T09:00:00Z", "end": "2024-03-09T09:00:00Z", "value": 70, "unit": "count/s"},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T09:00:00Z", "end": "2024-03-10T09:00:00Z", "value": 1200},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-11T09:00:00Z", "end": "2024-03-11T09:00:00Z", "value": -5},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-11T10:00:00Z", "end": "2024-03-11T10:00:00Z", "value": -7.5},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-12T09:00:00Z", "end": "2024-03-12T09:00:00Z", "value": 70},
      {"type": "HKQuantityTypeIdentifierHeartRate", "kind": "category", "start": "2024-03-12T10:00:00Z", "end": "2024-03-12T10:00:00Z", "value": 1}
    ]})");
  auto heartRate = std::make_shared<VelkHeartRateProvider>();
  const auto rateOn = [&](int day) {
    return read<VelkHeartRateData>(*heartRate, &VelkHeartRateProvider::getHeartRate,
                                   utcDate(2024, 3, day, 12));
  };
  // Converted to beats per minute; the day has no resting samples.
  ASSERT_TRUE(rateOn(9).isSuccess());
  EXPECT_EQ(rateOn(9).value().avgHeartRate, 4200);
  const auto resting = read<VelkRestingHrData>(
      *heartRate, &VelkHeartRateProvider::getRestingHeartRate, utcDate(2024, 3, 9, 12));
  ASSERT_TRUE(resting.isFailure());
  EXPECT_TRUE(errorIs(resting.error(), AppleHealthErrors::emptySamples));

  const auto high = rateOn(10);
  ASSERT_TRUE(high.isSuccess());
  EXPECT_EQ(high.value().maxHeartRate, 1200);
  EXPECT_EQ(high.value().minHeartRate, 1000);
  EXPECT_EQ(high.value().avgHeartRate, 1200);

  // All values negative: the maximum stays 0, the average truncates toward zero.
  const auto negative = rateOn(11);
  ASSERT_TRUE(negative.isSuccess());
  EXPECT_EQ(negative.value().maxHeartRate, 0);
  EXPECT_EQ(negative.value().minHeartRate, -7);
  EXPECT_EQ(negative.value().avgHeartRate, -6);
  // Newest first, as the store returned them.
  ASSERT_EQ(negative.value().granular.size(), 2u);
  EXPECT_EQ(negative.value().granular[0].value, -7.5);
  EXPECT_EQ(negative.value().granular[0].startDate, utcDate(2024, 3, 11, 10));

  const auto mixed = rateOn(12);
  ASSERT_TRUE(mixed.isFailure());
  EXPECT_TRUE(errorIs(mixed.error(), AppleHealthErrors::emptySamples));

  // The store's own error reaches the caller as the same object, each time.
  auto hrv = std::make_shared<VelkHRVProvider>();
  const auto first = read<VelkHRVData>(*hrv, &VelkHRVProvider::getHRV, utcDate(2024, 3, 10, 12));
  const auto second = read<VelkHRVData>(*hrv, &VelkHRVProvider::getHRV, utcDate(2024, 3, 10, 12));
  ASSERT_TRUE(first.isFailure());
  ASSERT_TRUE(second.isFailure());
  EXPECT_EQ(first.error().code(), 6);
  EXPECT_TRUE(first.error().isSameInstance(second.error()));

  PhysicalStore odd(R"({"samples": [
      {"type": "HKQuantityTypeIdentifierHeartRateVariabilitySDNN", "start": "2024-03-10T03:00:00Z", "end": "2024-03-10T03:00:00Z", "value": 40},
      {"type": "HKQuantityTypeIdentifierHeartRateVariabilitySDNN", "kind": "category", "start": "2024-03-10T04:00:00Z", "end": "2024-03-10T04:00:00Z", "value": 99},
      {"type": "HKQuantityTypeIdentifierHeartRateVariabilitySDNN", "start": "2024-03-10T05:00:00Z", "end": "2024-03-10T05:00:00Z", "value": 45}
    ]})");
  hrv = std::make_shared<VelkHRVProvider>();  // on the device of the store above
  const auto variability =
      read<VelkHRVData>(*hrv, &VelkHRVProvider::getHRV, utcDate(2024, 3, 10, 12));
  ASSERT_TRUE(variability.isSuccess());
  EXPECT_EQ(variability.value().avgValue, 42.5);  // 99 counted would make it 61.3
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

TEST(HeartRateProviderConcurrencyTest, AReleasedSampleProviderDropsHeartRateButHRVAnswersEmpty) {
  // The day has both kinds of samples. Each sample provider is released while its query waits
  // behind the store's queue: the heart-rate answer is dropped, the HRV one arrives empty, which
  // the HRV provider reports as emptySamples.
  PhysicalStore store(kFullDay);
  auto heartRate = std::make_shared<VelkHeartRateProvider>();
  auto hrv = std::make_shared<VelkHRVProvider>();
  Completions<Result<VelkHeartRateData>> rates;
  Completions<Result<VelkHRVData>> variabilities;
  platform::DispatchQueue& storeQueue =
      *platform::HealthDatabase::ofCurrentDevice()->callbackQueue();
  {
    QueueGate gate(storeQueue);
    heartRate->getHeartRate(utcDate(2024, 3, 10, 12), rates.completion());
    hrv->getHRV(utcDate(2024, 3, 10, 12), variabilities.completion());
    heartRate->velkHrSampleProvider.reset();
    hrv->hrvSampleProvider.reset();
  }
  drainQueue(storeQueue);
  EXPECT_TRUE(rates.values().empty());
  ASSERT_EQ(variabilities.values().size(), 1u);
  ASSERT_TRUE(variabilities.values()[0].isFailure());
  EXPECT_TRUE(errorIs(variabilities.values()[0].error(), AppleHealthErrors::emptySamples));
}

TEST(PhysicalProviderConcurrencyTest, OverlappingRequestsEachCompleteOnce) {
  PhysicalStore store(kFullDay);
  auto provider = std::make_shared<VelkPhysicalProvider>();
  constexpr int kRequestsPerThread = 8;
  platform::DebugOutputCapture quiet;  // the 11th has no data: its reads report failures

  std::vector<int> completions;  // touched on the main queue only
  for (std::vector<std::jthread> callers; callers.size() < 2;) {
    const int caller = static_cast<int>(callers.size());
    callers.emplace_back([&, caller] {
      for (int i = 0; i < kRequestsPerThread; ++i) {
        provider->getPhysicalData(utcDate(2024, 3, 10 + (i % 2), 12),
                                  [&, caller](Result<VelkPhysicalData> result) {
                                    ASSERT_TRUE(store.device().mainQueue().isCurrent());
                                    ASSERT_TRUE(result.isSuccess());
                                    completions.push_back(caller);
                                  });
      }
    });
  }
  ASSERT_TRUE(store.device().mainQueue().runUntil(
      [&] { return completions.size() == 2 * kRequestsPerThread; }, std::chrono::seconds(60)));
  store.device().mainQueue().drain();
  EXPECT_EQ(completions.size(), 2u * kRequestsPerThread);

  // Whatever order the answers came in, the 10th's values were stored and never cleared.
  EXPECT_EQ(provider->velkPhysicalBuilder.totalSteps(), 1234);
  EXPECT_EQ(provider->velkPhysicalBuilder.caloriesData(), (VelkCalories{350, 1650, 2000}));
}

}  // namespace
}  // namespace velk::testing
