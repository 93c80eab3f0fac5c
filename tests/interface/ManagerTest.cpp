#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "sleep/SleepTestStore.h"
#include "support/StoreFixture.h"
#include "velk/documents/BodyDocument.h"
#include "velk/documents/PhysicalDocument.h"
#include "velk/documents/SleepDocument.h"
#include "velk/healthstore/AppleHealthErrors.h"
#include "velk/interface/VelkExtractionManager.h"
#include "velk/platform/DebugOutput.h"
#include "velk/sleep/SleepRepository.h"

namespace velk {
namespace {

using Json = nlohmann::json;
using testing::TestDevice;
using testing::utcDate;
using Answer = std::pair<std::optional<Json>, std::optional<Error>>;  // a dictionary form's call

VelkExtractionManager::DictionaryCompletion collect(const testing::Completions<Answer>& answers) {
  return [done = answers.completion()](auto dictionary, auto error) {
    done({std::move(dictionary), std::move(error)});
  };
}

Answer sleepDictionary(VelkExtractionManager& manager, Date date) {
  testing::Completions<Answer> answers;
  manager.getSleepSummayObjc(date, collect(answers));
  return answers.wait().value_or(Answer{});
}

// Starts a request whose completion runs on the main queue, drives that queue until it has run,
// and returns the value it was given.
template <class T, class Start>
T onMainQueue(const TestDevice& device, Start start) {
  std::optional<T> value;
  start([&](T answer) {
    EXPECT_TRUE(device.mainQueue().isCurrent());
    value = std::move(answer);
  });
  EXPECT_TRUE(
      device.mainQueue().runUntil([&] { return value.has_value(); }, std::chrono::seconds(20)));
  return std::move(value).value();  // throws, failing the test, when no answer came
}

template <class Start>
Json dictionaryOnMainQueue(const TestDevice& device, Start start) {
  const Answer answer = onMainQueue<Answer>(device, [&](auto done) {
    start([done](std::optional<Json> dictionary, std::optional<Error> error) {
      done({std::move(dictionary), std::move(error)});
    });
  });
  EXPECT_FALSE(answer.second.has_value());
  return answer.first.value_or(Json());
}

// Owners that answer at once with a fixed result.
struct FixedPhysicalOwner final : PhysicalSummaryOwner {
  Result<VelkPhysicalData> answer;
  explicit FixedPhysicalOwner(Result<VelkPhysicalData> a) : answer(std::move(a)) {}
  void getPhysicalData(Date, Completion completion) override { completion(answer); }
};
struct FixedBodyOwner final : BodySummaryOwner {
  Result<VelkBodyData> answer;
  explicit FixedBodyOwner(Result<VelkBodyData> a) : answer(std::move(a)) {}
  void getBodySummary(Date, Completion completion) override { completion(answer); }
};

TEST(ManagerTest, SleepFromAStoreFileInBothFormsAndItsEmptyAndFailedAnswers) {
  const Date date = testing::utcDate(2024, 3, 10, 8, 30);
  {
    testing::SleepTestStore store(Json{
        {"samples", {testing::sleepSample(4, "2024-03-10T01:00:00Z", "2024-03-10T02:30:00Z")}}});
    VelkExtractionManager manager;
    testing::Completions<Result<std::optional<VelkSleepData>>> typed;
    manager.getSleepSummay(date, typed.completion());
    const auto document = typed.wait().value().value();
    ASSERT_TRUE(document.has_value());
    EXPECT_EQ(
        document->summaries.sleepRelatedData.sleepDurationRelatedData.deepSleepDurationSeconds,
        5400);
    EXPECT_EQ(sleepDictionary(manager, date), Answer(document->getDictionary(), std::nullopt));
    EXPECT_EQ(manager.getLastExtractionDateOfSleep(), date);
  }
  {
    testing::SleepTestStore store(Json::object(), {}, [](auto& contents) {
      contents.settings.typesAnsweringWithoutSamples.insert(
          "HKCategoryTypeIdentifierSleepAnalysis");
    });
    VelkExtractionManager manager;
    EXPECT_EQ(sleepDictionary(manager, date), Answer(Json::object(), std::nullopt));
  }
  {
    testing::SleepTestStore store(
        Json{{"query_errors",
              {{"HKCategoryTypeIdentifierSleepAnalysis", {{"code", 6}, {"message", "locked"}}}}}});
    VelkExtractionManager manager;
    const Answer answer = sleepDictionary(manager, date);
    EXPECT_FALSE(answer.first.has_value());
    ASSERT_TRUE(answer.second.has_value());
    EXPECT_TRUE(answer.second->isSameInstance(
        *store.database().queryError("HKCategoryTypeIdentifierSleepAnalysis")));
  }
}

TEST(ManagerTest, DictionaryFormsPassErrorsOnAndTurnUnencodableDocumentsIntoEmptyDictionaries) {
  testing::TestDevice device;
  VelkBodyData unencodable;
  unencodable.summaries.bodyData.metadata.datetime =
      Date::fromReferenceSeconds(std::numeric_limits<double>::quiet_NaN());
  const Error emptySamples = makeError(AppleHealthErrors::emptySamples);
  VelkExtractionManager manager(
      {SleepRepository::make(),
       std::make_shared<FixedPhysicalOwner>(Result<VelkPhysicalData>::failure(emptySamples)),
       std::make_shared<FixedBodyOwner>(Result<VelkBodyData>::success(unencodable))});
  testing::Completions<Answer> physical, body;
  manager.getPhysicalSummaryObjc(Date(), collect(physical));
  manager.getBodySummaryObjc(Date(), collect(body));

  EXPECT_FALSE(physical.wait()->first.has_value());
  EXPECT_TRUE(physical.wait()->second->isSameInstance(emptySamples));
  EXPECT_EQ(physical.wait()->second->message(), "Any sample was found for the data type");
  EXPECT_EQ(body.wait(), Answer(Json::object(), std::nullopt));
}

TEST(ManagerTest, ThePerKindGettersAllReadTheSleepEntryOnlyTheGeneralOneHonoursItsKind) {
  testing::TestDevice device;
  VelkExtractionManager manager;
  for (VelkDataType kind : allVelkDataTypes) {
    EXPECT_EQ(manager.getLastExtractionDate(kind), std::nullopt);
  }
  EXPECT_EQ(manager.getLastExtractionDateOfPhysical(), std::nullopt);

  const Date sleep = testing::utcDate(2024, 3, 1), body = testing::utcDate(2024, 3, 5);
  ExtractionLastDateStorage().storeLastDate(sleep, VelkDataType::sleepSummary);
  ExtractionLastDateStorage().storeLastDate(body, VelkDataType::bodySummary);
  ExtractionLastDateStorage().storeLastDate(body, VelkDataType::physicalSummary);
  EXPECT_EQ(manager.getLastExtractionDateOfSleep(), sleep);
  EXPECT_EQ(manager.getLastExtractionDateOfPhysical(), sleep);
  EXPECT_EQ(manager.getLastExtractionDateOfBody(), sleep);
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::bodySummary), body);
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::physicalSummary), body);
}

TEST(ManagerTest, BodyInBothFormsOnTheMainQueue) {
  // 170 lb typed in by hand before the requested moment, 250 lb after it, 160 lb at New Year's eve.
  TestDevice device({.timeZone = "Europe/Berlin",
                     .now = utcDate(2024, 6, 15, 12),
                     .healthDatabase = testing::databaseFromJson(R"({
    "date_of_birth": "1990-06-15", "biological_sex": 3, "samples": [
      {"type": "HKQuantityTypeIdentifierBodyMass", "unit": "lb", "value": 170, "start": "2024-03-10T07:00:00Z", "end": "2024-03-10T07:00:00Z", "metadata": {"HKWasUserEntered": true}},
      {"type": "HKQuantityTypeIdentifierBodyMass", "unit": "lb", "value": 250, "start": "2024-03-10T09:00:00Z", "end": "2024-03-10T09:00:00Z"},
      {"type": "HKQuantityTypeIdentifierBodyMass", "unit": "lb", "value": 160, "start": "2023-12-31T07:00:00Z", "end": "2023-12-31T07:00:00Z"},
      {"type": "HKQuantityTypeIdentifierHeight", "unit": "m", "value": 1.78, "start": "2023-01-01T00:00:00Z", "end": "2023-01-01T00:00:00Z"}]})")});
  VelkExtractionManager manager;
  const Date requested = utcDate(2024, 3, 10, 8, 30);
  const Json dictionary = dictionaryOnMainQueue(
      device, [&](auto done) { manager.getBodySummaryObjc(requested, std::move(done)); });
  const auto& data = dictionary["summaries"]["body_data"];
  EXPECT_EQ(dictionary["data_structure"], "body_health");
  EXPECT_EQ(data["body"]["weight_kg_number"], 77);  // 170 lb = 77.11 kg; the later 250 lb is out
  EXPECT_EQ(data["body"]["height_cm_number"], 178);
  const auto& user = data["metadata"]["user_demographics"][0];
  EXPECT_EQ(user["gender"], "other");
  EXPECT_TRUE(user["sex"].is_null());
  EXPECT_EQ(user["date_of_birth"], "1990-06-15");
  EXPECT_EQ(user["age"], 34);
  EXPECT_EQ(data["metadata"]["datetime"], requested.timeIntervalSinceReferenceDate());
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::bodySummary), requested);
  // The published per-kind getter reads the sleep entry, which nothing has written.
  EXPECT_EQ(manager.getLastExtractionDateOfBody(), std::nullopt);

  const auto typed = onMainQueue<Result<VelkBodyData>>(
      device, [&](auto done) { manager.getBodySummary(utcDate(2024, 1, 1), std::move(done)); });
  ASSERT_TRUE(typed.isSuccess());
  EXPECT_EQ(typed.value().summaries.bodyData.body.weightKgNumber, 72);  // 160 lb = 72.57 kg
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::bodySummary), utcDate(2024, 1, 1));
}

TEST(ManagerTest, PhysicalInBothFormsOnTheMainQueueCarryingEarlierValues) {
  // Steps, energy and heart rate on 2024-03-10 (Berlin); only heart rate on the 11th.
  TestDevice device(
      {.timeZone = "Europe/Berlin", .healthDatabase = testing::databaseFromJson(R"({"samples": [
      {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T10:00:00+01:00", "end": "2024-03-10T11:00:00+01:00", "value": 8000.7},
      {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-03-10T10:00:00+01:00", "end": "2024-03-10T11:00:00+01:00", "value": 400},
      {"type": "HKQuantityTypeIdentifierBasalEnergyBurned", "start": "2024-03-10T00:30:00+01:00", "end": "2024-03-10T23:30:00+01:00", "value": 1600},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T09:00:00+01:00", "end": "2024-03-10T09:00:00+01:00", "value": 60},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T10:00:00+01:00", "end": "2024-03-10T10:00:00+01:00", "value": 100},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-11T10:00:00+01:00", "end": "2024-03-11T10:00:00+01:00", "value": 120}]})")});
  platform::DebugOutputCapture debugOutput;
  VelkExtractionManager manager;
  const Date firstDay = device.localDate(2024, 3, 10, 21, 15);
  const Json dictionary = dictionaryOnMainQueue(
      device, [&](auto done) { manager.getPhysicalSummaryObjc(firstDay, std::move(done)); });
  EXPECT_EQ(dictionary["data_structure"], "physical_health");
  EXPECT_EQ(dictionary["version"], 1);
  const auto& daily = dictionary["summaries"]["daily_activity_related_data"];
  EXPECT_EQ(daily["distance_data"]["steps_per_day_number"], 8000);
  EXPECT_EQ(daily["calories_data"]["calories_net_active_kilocalories"], 400);
  EXPECT_EQ(daily["calories_data"]["calories_basal_metabolic_rate_kilocalories"], 1600);
  EXPECT_TRUE(daily["calories_data"]["calories_expenditure_kilocalories"].is_null());
  EXPECT_EQ(daily["heart_rate_data"]["hr_avg_bpm"], 80);
  EXPECT_FALSE(daily.contains("non_structured_data"));
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::physicalSummary), firstDay);
  EXPECT_EQ(manager.getLastExtractionDateOfPhysical(), std::nullopt);  // reads the sleep entry

  // The 11th has heart rate only: its steps and calories are the 10th's, kept by the manager's
  // one physical provider.
  const Date secondDay = device.localDate(2024, 3, 11, 7, 0);
  const auto typed = onMainQueue<Result<VelkPhysicalData>>(
      device, [&](auto done) { manager.getPhysicalSummary(secondDay, std::move(done)); });
  ASSERT_TRUE(typed.isSuccess());
  const auto& second = typed.value().summaries.dailyActivityRelatedData;
  EXPECT_EQ(second.distanceData.stepsPerDayNumber, 8000);
  EXPECT_EQ(second.caloriesData.caloriesNetActiveKilocalories, 400);
  EXPECT_EQ(second.heartRateData.hrMaxBPM, 120);
  EXPECT_EQ(second.heartRateData.hrMinimumBPM, 120);
  EXPECT_EQ(second.metadata.datetime, secondDay);
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::physicalSummary), secondDay);
}

}  // namespace
}  // namespace velk
