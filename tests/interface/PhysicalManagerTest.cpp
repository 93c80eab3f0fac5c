#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "support/TestDevice.h"
#include "velk/documents/PhysicalDocument.h"
#include "velk/ingest/StoreFile.h"
#include "velk/interface/VelkExtractionManager.h"
#include "velk/platform/DebugOutput.h"

namespace velk::testing {
namespace {

// Steps, energy and heart rate on 2024-03-10 (Berlin); only heart rate on the 11th.
std::shared_ptr<platform::HealthDatabase> activityStore() {
  auto contents = ingest::StoreFile::parse(R"({"samples": [
      {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T10:00:00+01:00", "end": "2024-03-10T11:00:00+01:00", "value": 8000.7},
      {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-03-10T10:00:00+01:00", "end": "2024-03-10T11:00:00+01:00", "value": 400},
      {"type": "HKQuantityTypeIdentifierBasalEnergyBurned", "start": "2024-03-10T00:30:00+01:00", "end": "2024-03-10T23:30:00+01:00", "value": 1600},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T09:00:00+01:00", "end": "2024-03-10T09:00:00+01:00", "value": 60},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T10:00:00+01:00", "end": "2024-03-10T10:00:00+01:00", "value": 100},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-11T10:00:00+01:00", "end": "2024-03-11T10:00:00+01:00", "value": 120}
    ]})",
                                           "activity.json");
  EXPECT_TRUE(contents.isSuccess()) << contents.error().message();
  return ingest::StoreFile::makeDatabase(contents.value());
}

TEST(PhysicalManagerTest, BothFormsServeThePhysicalSummaryAndCarryEarlierValues) {
  TestDevice device({.timeZone = "Europe/Berlin", .healthDatabase = activityStore()});
  platform::DebugOutputCapture debugOutput;
  VelkExtractionManager manager;
  const Date firstDay = device.localDate(2024, 3, 10, 21, 15);

  std::optional<nlohmann::json> dictionary;
  manager.getPhysicalSummaryObjc(
      firstDay, [&](std::optional<nlohmann::json> answer, std::optional<Error> error) {
        EXPECT_TRUE(device.mainQueue().isCurrent());
        EXPECT_FALSE(error.has_value());
        dictionary = std::move(answer);
      });
  ASSERT_TRUE(device.mainQueue().runUntil([&] { return dictionary.has_value(); },
                                          std::chrono::seconds(20)));
  EXPECT_EQ((*dictionary)["data_structure"], "physical_health");
  EXPECT_EQ((*dictionary)["version"], 1);
  const auto& daily = (*dictionary)["summaries"]["daily_activity_related_data"];
  EXPECT_EQ(daily["distance_data"]["steps_per_day_number"], 8000);
  EXPECT_EQ(daily["calories_data"]["calories_net_active_kilocalories"], 400);
  EXPECT_EQ(daily["calories_data"]["calories_basal_metabolic_rate_kilocalories"], 1600);
  EXPECT_TRUE(daily["calories_data"]["calories_expenditure_kilocalories"].is_null());
  EXPECT_EQ(daily["heart_rate_data"]["hr_avg_bpm"], 80);
  EXPECT_FALSE(daily.contains("non_structured_data"));
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::physicalSummary), firstDay);
  // The published per-kind getter reads the sleep entry, which nothing has written.
  EXPECT_EQ(manager.getLastExtractionDateOfPhysical(), std::nullopt);

  // The 11th has heart rate only: its steps and calories are the 10th's, kept by the manager's
  // one physical provider.
  const Date secondDay = device.localDate(2024, 3, 11, 7, 0);
  std::optional<Result<VelkPhysicalData>> typed;
  manager.getPhysicalSummary(
      secondDay, [&typed](Result<VelkPhysicalData> result) { typed = std::move(result); });
  ASSERT_TRUE(
      device.mainQueue().runUntil([&] { return typed.has_value(); }, std::chrono::seconds(20)));
  ASSERT_TRUE(typed->isSuccess());
  const auto& second = typed->value().summaries.dailyActivityRelatedData;
  EXPECT_EQ(second.distanceData.stepsPerDayNumber, 8000);
  EXPECT_EQ(second.caloriesData.caloriesNetActiveKilocalories, 400);
  EXPECT_EQ(second.heartRateData.hrMaxBPM, 120);
  EXPECT_EQ(second.heartRateData.hrMinimumBPM, 120);
  EXPECT_EQ(second.metadata.datetime, secondDay);
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::physicalSummary), secondDay);
}

}  // namespace
}  // namespace velk::testing
