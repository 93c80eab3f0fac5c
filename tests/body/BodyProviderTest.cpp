#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "body/BodyTestSupport.h"
#include "velk/healthstore/AppleHealthErrors.h"
#include "velk/interface/ExtractionLastDateStorage.h"
#include "velk/platform/DebugOutput.h"

namespace velk::testing {
namespace {

using platform::Characteristics;
using platform::DateComponents;

Characteristics bornOn(int year, int month, int day, std::int64_t biologicalSex) {
  DateComponents components;
  components.year = year;
  components.month = month;
  components.day = day;
  Characteristics characteristics;
  characteristics.dateOfBirth = components;
  characteristics.biologicalSex = biologicalSex;
  return characteristics;
}

std::optional<Date> storedBodyDate() {
  return ExtractionLastDateStorage().readLastDate(VelkDataType::bodySummary);
}

TEST(BodyProviderTest, FillsWeightHeightAndTheUserFromTheNewestSamples) {
  // The clock reads 2024-06-14 20:00 in Los Angeles: the day before the 34th birthday.
  auto store = database({measurement(kBodyMass, 160.9, "lb", utcDate(2024, 6, 1, 15)),
                         measurement(kBodyMass, 190, "lb", utcDate(2024, 5, 1, 15)),
                         measurement(kHeight, 1.759, "m", utcDate(2020, 1, 1))},
                        bornOn(1990, 6, 15, 1));
  TestDevice scoped(
      {.timeZone = "America/Los_Angeles", .now = utcDate(2024, 6, 15, 3), .healthDatabase = store});
  auto provider = std::make_shared<VelkBodyProvider>();
  const Date requested = scoped.localDate(2024, 6, 10, 9, 30, 0.25);

  const auto document = bodySummary(*provider, scoped, requested);
  const auto& data = document.summaries.bodyData;
  EXPECT_EQ(document.dataStructure, "body_health");
  EXPECT_EQ(data.metadata.datetime, requested);
  EXPECT_EQ(data.metadata.sourcesOfData, std::vector<std::string>{"Apple Health"});
  EXPECT_EQ(data.body.weightKgNumber, 72);   // 160.9 lb = 72.98 kg, truncated
  EXPECT_EQ(data.body.heightCMNumber, 175);  // 175.9 cm, truncated
  ASSERT_EQ(data.metadata.userDemographics.size(), 1u);
  const auto& user = data.metadata.userDemographics[0];
  EXPECT_EQ(user.gender, "female");
  EXPECT_EQ(user.sex, std::nullopt);
  EXPECT_EQ(user.dateOfBirth, "1990-06-15");
  EXPECT_EQ(user.age, 33);
  EXPECT_EQ(storedBodyDate(), requested);

  // An hour later it is the birthday in Los Angeles; the age follows the clock, not the request.
  scoped.setNow(utcDate(2024, 6, 15, 7, 0, 1));
  const auto later = bodySummary(*provider, scoped, requested);
  EXPECT_EQ(later.summaries.bodyData.metadata.userDemographics[0].age, 34);
}

TEST(BodyProviderTest, NothingReadableStillSucceedsWithAnEmptyDocument) {
  const Error refused(platform::kHealthKitErrorDomain, 5, "Authorization not determined");
  Characteristics characteristics;
  characteristics.dateOfBirth = refused;
  characteristics.biologicalSex = refused;
  platform::HealthDatabaseSettings settings;
  settings.unknownTypes.insert(kBodyMass);
  settings.queryErrors.emplace(kHeight, refused);
  TestDevice device({.healthDatabase = database({}, characteristics, settings)});
  auto provider = std::make_shared<VelkBodyProvider>();
  const Date requested = utcDate(2024, 1, 5);

  platform::DebugOutputCapture debug;
  const auto document = bodySummary(*provider, device, requested);
  const std::string line = platform::debugDescription(refused) + "\n";
  EXPECT_EQ(debug.text(),
            line + line +
                platform::debugDescription(makeError(AppleHealthErrors::sampleTypeNotAvailable)) +
                "\n" + line);

  const auto json = document.getDictionary();
  const auto& data = json["summaries"]["body_data"];
  EXPECT_TRUE(data["body"]["weight_kg_number"].is_null());
  EXPECT_TRUE(data["body"]["height_cm_number"].is_null());
  EXPECT_EQ(data["metadata"]["sources_of_data"], nlohmann::json::array({"Apple Health"}));
  ASSERT_EQ(data["metadata"]["user_demographics"].size(), 1u);
  for (const auto& [key, value] : data["metadata"]["user_demographics"][0].items()) {
    EXPECT_TRUE(value.is_null()) << key;
  }
  EXPECT_FALSE(data["blood_glucose"]["blood_pressure"].contains("non_structured_data"));
  EXPECT_EQ(storedBodyDate(), requested);
}

TEST(BodyProviderTest, FailedReadsKeepWhatEarlierRequestsRead) {
  auto store = std::make_shared<SwappableHealthDatabase>(
      database({measurement(kBodyMass, 80.4, "kg", utcDate(2024, 2, 1)),
                measurement(kHeight, 180, "cm", utcDate(2024, 2, 1))},
               bornOn(1980, 1, 1, 2)));
  TestDevice device({.healthDatabase = store});
  auto provider = std::make_shared<VelkBodyProvider>();
  const auto first = bodySummary(*provider, device, utcDate(2024, 3, 1));
  EXPECT_EQ(first.summaries.bodyData.body.weightKgNumber, 80);

  // The user has since removed the height and the date of birth, and weights can't be read.
  const Error refused(platform::kHealthKitErrorDomain, 5, "Authorization not determined");
  Characteristics later;
  later.biologicalSex = refused;  // the date of birth answers: none entered
  platform::HealthDatabaseSettings settings;
  settings.queryErrors.emplace(kBodyMass, refused);
  store->swap(database({}, later, settings));
  platform::DebugOutputCapture debug;
  const auto second = bodySummary(*provider, device, utcDate(2024, 3, 2));
  EXPECT_EQ(debug.text(), platform::debugDescription(refused) + "\n" +
                              platform::debugDescription(refused) + "\n");
  const auto& body = second.summaries.bodyData.body;
  const auto& user = second.summaries.bodyData.metadata.userDemographics.at(0);
  EXPECT_EQ(body.weightKgNumber, 80);            // read failed: the earlier value stays
  EXPECT_EQ(body.heightCMNumber, std::nullopt);  // read an empty list: replaced
  EXPECT_EQ(user.gender, "male");                // read failed: stays
  EXPECT_EQ(user.dateOfBirth, std::nullopt);     // read "none": cleared
  EXPECT_EQ(user.age, std::nullopt);
}

TEST(BodyProviderTest, ReleasedWhileAReadIsOutNeverCompletes) {
  auto store = database({measurement(kBodyMass, 80, "kg", utcDate(2024, 2, 1))});
  TestDevice device({.healthDatabase = store});
  bool completed = false;
  {
    HeldCallbackQueue hold(*store);
    auto provider = std::make_shared<VelkBodyProvider>();
    provider->getBodySummary(utcDate(2024, 3, 1), [&completed](auto) { completed = true; });
    provider.reset();
  }
  flush(*store);
  device.mainQueue().drain();
  EXPECT_FALSE(completed);
  EXPECT_EQ(storedBodyDate(), std::nullopt);
}

TEST(BodyProviderDeathTest, AProviderWithoutAnOwnerIsAMistakeFoundAtOnce) {
  TestDevice device({.healthDatabase = database({})});
  EXPECT_DEATH(
      {
        VelkBodyProvider provider;
        provider.getBodySummary(utcDate(2024, 3, 1), [](auto) {});
      },
      "must be held by a std::shared_ptr");
}

TEST(BodyProviderConcurrencyTest, OverlappingRequestsShareOneBuilderSafely) {
  auto store = database({measurement(kBodyMass, 70.5, "kg", utcDate(2024, 2, 1)),
                         measurement(kHeight, 170, "cm", utcDate(2024, 2, 1))},
                        bornOn(2000, 1, 1, 3));
  TestDevice device({.healthDatabase = store});
  auto provider = std::make_shared<VelkBodyProvider>();
  int answers = 0;
  std::vector<std::thread> callers;
  for (int i = 0; i < 4; ++i) {
    callers.emplace_back([&provider, i, &answers] {
      provider->getBodySummary(utcDate(2024, 3, 1 + i), [&answers](Result<VelkBodyData> result) {
        EXPECT_EQ(result.value().summaries.bodyData.body.weightKgNumber, 70);
        ++answers;  // on the main queue only
      });
    });
  }
  for (auto& caller : callers) {
    caller.join();
  }
  EXPECT_TRUE(
      device.mainQueue().runUntil([&answers] { return answers == 4; }, std::chrono::seconds(10)));
}

}  // namespace
}  // namespace velk::testing
