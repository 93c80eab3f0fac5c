#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "support/TestDevice.h"
#include "velk/documents/BodyDocument.h"
#include "velk/ingest/StoreFile.h"
#include "velk/interface/VelkExtractionManager.h"

namespace velk::testing {
namespace {

// Twelve weekly weights in pounds, 170 lb on 2024-03-10 (typed in by hand) down to 159 lb, one
// taken after the requested moment, a height in metres, and a user born on 1990-06-15 whose sex is
// "other".
std::shared_ptr<platform::HealthDatabase> bodyStore() {
  const char* weeks[] = {"2024-03-10", "2024-03-03", "2024-02-25", "2024-02-18",
                         "2024-02-11", "2024-02-04", "2024-01-28", "2024-01-21",
                         "2024-01-14", "2024-01-07", "2023-12-31", "2023-12-24"};
  std::string samples;
  for (int week = 0; week < 12; ++week) {
    const std::string at = std::string(weeks[week]) + "T07:00:00Z";
    samples += R"({"type": "HKQuantityTypeIdentifierBodyMass", "unit": "lb", "value": )" +
               std::to_string(170 - week) + R"(, "start": ")" + at + R"(", "end": ")" + at + "\"" +
               (week == 0 ? R"(, "metadata": {"HKWasUserEntered": true})" : "") + "},\n";
  }
  const std::string text = R"({
    "date_of_birth": "1990-06-15",
    "biological_sex": 3,
    "samples": [)" + samples +
                           R"(
      {"type": "HKQuantityTypeIdentifierBodyMass", "unit": "lb", "value": 250,
       "start": "2024-03-10T09:00:00Z", "end": "2024-03-10T09:00:00Z"},
      {"type": "HKQuantityTypeIdentifierHeight", "unit": "m", "value": 1.78,
       "start": "2023-01-01T00:00:00Z", "end": "2023-01-01T00:00:00Z"}
    ]})";
  auto contents = ingest::StoreFile::parse(text, "body.json");
  EXPECT_TRUE(contents.isSuccess()) << contents.error().message();
  return ingest::StoreFile::makeDatabase(contents.value());
}

TEST(BodyManagerTest, BothFormsServeTheBodySummaryOnTheMainQueue) {
  TestDevice device({.timeZone = "Europe/Berlin",
                     .now = utcDate(2024, 6, 15, 12),
                     .healthDatabase = bodyStore()});
  VelkExtractionManager manager;
  const Date requested = utcDate(2024, 3, 10, 8, 30);

  std::optional<nlohmann::json> dictionary;
  bool onMainQueue = false;
  manager.getBodySummaryObjc(requested,
                             [&](std::optional<nlohmann::json> answer, std::optional<Error> error) {
                               onMainQueue = device.mainQueue().isCurrent();
                               EXPECT_FALSE(error.has_value());
                               dictionary = std::move(answer);
                             });
  ASSERT_TRUE(device.mainQueue().runUntil([&] { return dictionary.has_value(); },
                                          std::chrono::seconds(10)));
  EXPECT_TRUE(onMainQueue);
  const auto& data = (*dictionary)["summaries"]["body_data"];
  EXPECT_EQ((*dictionary)["data_structure"], "body_health");
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

  std::optional<Result<VelkBodyData>> typed;
  manager.getBodySummary(utcDate(2024, 1, 1),
                         [&typed](Result<VelkBodyData> result) { typed = std::move(result); });
  ASSERT_TRUE(
      device.mainQueue().runUntil([&] { return typed.has_value(); }, std::chrono::seconds(10)));
  ASSERT_TRUE(typed->isSuccess());
  // The newest weight before New Year is that of 2023-12-31: 160 lb = 72.57 kg.
  EXPECT_EQ(typed->value().summaries.bodyData.body.weightKgNumber, 72);
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::bodySummary), utcDate(2024, 1, 1));
}

}  // namespace
}  // namespace velk::testing
