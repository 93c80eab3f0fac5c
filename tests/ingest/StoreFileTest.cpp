#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ingest/StoreFile.h"
#include "support/TempDir.h"
#include "support/TestDevice.h"

namespace velk::ingest {
namespace {

using nlohmann::json;
using testing::utcDate;

TEST(StoreFileTest, ReadsSamplesWithTheirDefaultsAndOffsetsIntoADatabase) {
  const std::string text = R"({
    "date_of_birth": null, "biological_sex": {"error": {"code": 6, "message": "Protected"}},
    "unknown_types": ["HKQuantityTypeIdentifierStepCount"],
    "samples": [
      {"type": "HKCategoryTypeIdentifierSleepAnalysis", "start": "2024-03-09T23:10:00+01:00",
       "end": "2024-03-10T06:40:00.250+01:00", "value": 3, "source": "com.apple.health.8D2F3A",
       "metadata": {"HKWasUserEntered": true, "HKTimeZone": "Europe/Berlin"}},
      {"type": "HKQuantityTypeIdentifierBodyMass", "start": "2024-03-10T08:00:00-05:30",
       "end": "2024-03-10T08:00:00-05:30", "value": 160, "unit": "lb"},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T08:00:00Z",
       "end": "2024-03-10T08:00:00Z", "value": 61.5}]})";
  const auto contents = StoreFile::parse(text, "store.json");
  ASSERT_TRUE(contents.isSuccess()) << contents.error().message();
  const auto& samples = contents.value().samples;
  ASSERT_EQ(samples.size(), 3u);
  EXPECT_EQ(samples[0].kind, platform::SampleKind::category);
  EXPECT_EQ(samples[0].start, utcDate(2024, 3, 9, 22, 10));
  EXPECT_EQ(samples[0].end, utcDate(2024, 3, 10, 5, 40, 0.25));
  EXPECT_EQ(samples[0].wasUserEntered, true);
  EXPECT_EQ(samples[0].sourceBundleIdentifier, "com.apple.health.8D2F3A");
  EXPECT_EQ(samples[1].start, utcDate(2024, 3, 10, 13, 30));
  EXPECT_EQ(samples[1].unit, "lb");
  EXPECT_EQ(samples[1].sourceBundleIdentifier, "com.apple.health");
  EXPECT_EQ(samples[2].unit, "count/min");
  EXPECT_FALSE(samples[2].wasUserEntered);
  EXPECT_EQ(std::get<platform::DateComponents>(contents.value().characteristics.dateOfBirth),
            platform::DateComponents{});
  EXPECT_TRUE(contents.value().settings.healthDataAvailable);

  testing::TempDir folder;
  const auto database = StoreFile::load(folder.write("store.json", text));
  ASSERT_TRUE(database.isSuccess()) << database.error().message();
  EXPECT_FALSE(database.value()->knowsType("HKQuantityTypeIdentifierStepCount"));
  EXPECT_EQ(database.value()->sampleCount(), 3u);
  EXPECT_EQ(std::get<Error>(database.value()->characteristics().biologicalSex).message(),
            "Protected");
  const auto missing = StoreFile::load(folder.file("absent.json"));
  ASSERT_TRUE(missing.isFailure());
  EXPECT_NE(missing.error().message().find("absent.json"), std::string::npos);
}

// A store file of one step sample, changed by `changes` (a null removes a key).
std::string withSample(const json& changes) {
  json sample = {{"type", "HKQuantityTypeIdentifierStepCount"},
                 {"start", "2024-03-10T08:00:00Z"},
                 {"end", "2024-03-10T08:10:00Z"},
                 {"value", 1}};
  sample.merge_patch(changes);
  return json{{"samples", json::array({sample})}}.dump();
}

TEST(StoreFileTest, ErrorsNameTheFileThePathAndTheProblem) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {withSample({{"colour", "red"}}), "store.json: samples[0].colour: unknown key"},
      {withSample({{"unit", "kilograms"}}), "samples[0].unit: unknown unit \"kilograms\""},
      {withSample({{"unit", "kg"}}), "samples[0].unit: \"kg\" cannot measure"},
      {withSample({{"metadata", {{"HKWasUserEntered", "yes"}}}}),
       "samples[0].metadata.HKWasUserEntered: expected true or false"},
      {withSample({{"kind", "workout"}}), "samples[0].kind: expected \"quantity\""},
      {withSample({{"start", "2024-03-10 08:00:00"}}),
       "samples[0].start: expected an ISO 8601 date"},
      {withSample({{"start", "2024-03-10T09:00:00Z"}}),
       "samples[0].end: the sample ends before it starts"},
      {withSample({{"type", "HKCategoryTypeIdentifierSleepAnalysis"}, {"value", 2.5}}),
       "samples[0].value: expected an integer"},
      {withSample({{"end", nullptr}}), "samples[0]: missing \"end\""},
      {R"({"query_errors": {"HKQuantityTypeIdentifierHeartRate": {"code": "5", "message": "x"}}})",
       "query_errors.HKQuantityTypeIdentifierHeartRate.code: expected an integer, found string"},
      {R"({"date_of_birth": "15.06.1990"})", "date_of_birth: expected a day"},
      {R"({"health_data_available": 1})", "health_data_available: expected true or false"},
      {R"({"samples": {}})", "samples: expected an array"},
      {R"({"samples": [{"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T08:00:00Z",
          "end": "2024-03-10T09:00:00Z", "value": 5, "value": 500}]})",
       "store.json: the key \"value\" appears twice in one object"},
  };
  for (const auto& [text, expected] : cases) {
    const auto result = StoreFile::parse(text, "store.json");
    ASSERT_TRUE(result.isFailure()) << text;
    EXPECT_EQ(result.error().code(), static_cast<std::int64_t>(StoreFileErrorCode::invalid));
    EXPECT_NE(result.error().message().find(expected), std::string::npos)
        << result.error().message() << "\n  should contain: " << expected;
    EXPECT_EQ(result.error().message().rfind("store.json: ", 0), 0u) << result.error().message();
  }
  const auto notJson = StoreFile::parse("{\"samples\": [", "broken.json");
  ASSERT_TRUE(notJson.isFailure());
  EXPECT_EQ(notJson.error().code(), static_cast<std::int64_t>(StoreFileErrorCode::notJson));
}

}  // namespace
}  // namespace velk::ingest
