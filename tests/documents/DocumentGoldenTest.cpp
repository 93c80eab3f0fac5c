// The three documents as hosts receive them: held against golden files key by key, read back
// into records, and falling back to an empty dictionary or no data when they cannot be encoded.
#include <cmath>
#include <limits>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "DocumentTestSupport.h"
#include "RecordFiller.h"

namespace velk {
namespace {

using ::testing::IsEmpty;
using velk::testing::documentWithNothingKnown;
using velk::testing::jsonDifferences;
using velk::testing::metadataOf;
using velk::testing::readGolden;
using velk::testing::RecordFiller;

template <class Root>
struct Kind;
template <>
struct Kind<VelkSleepData> {
  static constexpr const char* name = "sleep";
  static constexpr const char* dataStructure = "sleep_health";
};
template <>
struct Kind<VelkPhysicalData> {
  static constexpr const char* name = "physical";
  static constexpr const char* dataStructure = "physical_health";
};
template <>
struct Kind<VelkBodyData> {
  static constexpr const char* name = "body";
  static constexpr const char* dataStructure = "body_health";
};

template <class Root>
class DocumentGoldenTest : public ::testing::Test {
 protected:
  static std::string golden(const char* variant) {
    return std::string(Kind<Root>::name) + "_" + variant + ".json";
  }

  static Root filledDocument() {
    Root document;
    document.summaries = RecordFiller().make<decltype(document.summaries)>();
    return document;
  }
};

using Roots = ::testing::Types<VelkSleepData, VelkPhysicalData, VelkBodyData>;
TYPED_TEST_SUITE(DocumentGoldenTest, Roots);

TYPED_TEST(DocumentGoldenTest, DocumentWithNothingKnownWritesEveryKey) {
  const auto document = documentWithNothingKnown<TypeParam>();
  const nlohmann::json dictionary = document.getDictionary();

  EXPECT_THAT(jsonDifferences(readGolden(this->golden("nothing_known")), dictionary), IsEmpty());
  ASSERT_EQ(dictionary.size(), 3U);
  EXPECT_EQ(dictionary.at("data_structure"), Kind<TypeParam>::dataStructure);
  EXPECT_EQ(dictionary.at("version"), 1);
}

TYPED_TEST(DocumentGoldenTest, FilledDocumentWritesEveryValueUnderItsKey) {
  EXPECT_THAT(
      jsonDifferences(readGolden(this->golden("filled")), this->filledDocument().getDictionary()),
      IsEmpty());
}

TYPED_TEST(DocumentGoldenTest, DocumentsReadBackToTheSameRecords) {
  for (const TypeParam& document :
       {documentWithNothingKnown<TypeParam>(), this->filledDocument()}) {
    const std::optional<std::string> data = document.getData();
    ASSERT_TRUE(data.has_value());
    const Result<TypeParam> fromData = TypeParam::fromData(*data);
    ASSERT_TRUE(fromData.isSuccess()) << fromData.error();
    EXPECT_EQ(fromData.value(), document);

    const Result<TypeParam> fromDictionary = TypeParam::fromDictionary(document.getDictionary());
    ASSERT_TRUE(fromDictionary.isSuccess()) << fromDictionary.error();
    EXPECT_EQ(fromDictionary.value(), document);
  }
  // The golden file is read on its own too, so that a key misspelt the same way in both
  // directions cannot pass.
  const Result<TypeParam> golden = TypeParam::fromDictionary(readGolden(this->golden("filled")));
  ASSERT_TRUE(golden.isSuccess()) << golden.error();
  EXPECT_EQ(golden.value(), this->filledDocument());
}

TYPED_TEST(DocumentGoldenTest, UnencodableDocumentFallsBackToEmptyDictionaryAndNoData) {
  for (const double seconds :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity()}) {
    auto document = this->filledDocument();
    metadataOf(document).datetime = Date::fromReferenceSeconds(seconds);
    EXPECT_EQ(document.getDictionary(), nlohmann::json::object());
    EXPECT_FALSE(document.getData().has_value());
  }
  // Text that is not UTF-8 cannot become JSON bytes either.
  auto document = documentWithNothingKnown<TypeParam>();
  metadataOf(document).userID = std::string("user \xff\xfe");
  EXPECT_EQ(document.getDictionary(), nlohmann::json::object());
  EXPECT_FALSE(document.getData().has_value());
}

// The extractions fill a handful of fields; each must land under the key a backend reads.
TEST(DocumentKeysTest, FieldsTheExtractionsFillLandUnderTheirKeys) {
  VelkBodyData body = documentWithNothingKnown<VelkBodyData>();
  body.summaries.bodyData.body.weightKgNumber = 81;
  body.summaries.bodyData.body.heightCMNumber = 183;
  const nlohmann::json bodyJson = body.getDictionary();
  EXPECT_EQ(bodyJson["summaries"]["body_data"]["body"]["weight_kg_number"], 81);
  EXPECT_EQ(bodyJson["summaries"]["body_data"]["body"]["height_cm_number"], 183);

  VelkPhysicalData physical = documentWithNothingKnown<VelkPhysicalData>();
  auto& daily = physical.summaries.dailyActivityRelatedData;
  daily.distanceData.stepsPerDayNumber = 9120;
  daily.caloriesData.caloriesNetActiveKilocalories = 420;
  daily.caloriesData.caloriesBasalMetabolicRateKilocalories = 1700;
  daily.heartRateData =
      HeartRateData{151, 48, 72, 55, std::nullopt, std::nullopt, 41, std::nullopt, std::nullopt};
  const nlohmann::json dailyJson =
      physical.getDictionary()["summaries"]["daily_activity_related_data"];
  EXPECT_EQ(dailyJson["distance_data"]["steps_per_day_number"], 9120);
  EXPECT_EQ(dailyJson["calories_data"]["calories_net_active_kilocalories"], 420);
  EXPECT_EQ(dailyJson["calories_data"]["calories_basal_metabolic_rate_kilocalories"], 1700);
  const nlohmann::json& heart = dailyJson["heart_rate_data"];
  EXPECT_EQ(heart["hr_max_bpm"], 151);
  EXPECT_EQ(heart["hr_minimum_bpm"], 48);
  EXPECT_EQ(heart["hr_avg_bpm"], 72);
  EXPECT_EQ(heart["hr_resting_bpm"], 55);
  EXPECT_EQ(heart["hrv_avg_rmssd_number"], nullptr);
  EXPECT_EQ(heart["hrv_avg_sdnn_number"], 41);

  VelkSleepData sleep = documentWithNothingKnown<VelkSleepData>();
  const Date end = Date::fromReferenceSeconds(731836800.0);
  sleep.summaries.sleepRelatedData.sleepDurationRelatedData = SleepDurationRelatedData{
      end.addingTimeInterval(-27000.0), end, end, 25200, 27000, 14400, 5400, 5400, 0, 1800};
  const nlohmann::json night =
      sleep.getDictionary()["summaries"]["sleep_related_data"]["sleep_duration_related_data"];
  EXPECT_EQ(night["sleep_start_datetime"], 731809800);
  EXPECT_EQ(night["sleep_end_datetime"], 731836800);
  EXPECT_EQ(night["sleep_date"], 731836800);
  EXPECT_EQ(night["sleep_duration_seconds"], 25200);
  EXPECT_EQ(night["time_in_bed_seconds"], 27000);
  EXPECT_EQ(night["light_sleep_duration_seconds"], 14400);
  EXPECT_EQ(night["rem_sleep_duration_seconds"], 5400);
  EXPECT_EQ(night["deep_sleep_duration_seconds"], 5400);
  EXPECT_EQ(night["time_to_fall_asleep_seconds"], 0);
  EXPECT_EQ(night["time_awake_during_sleep_seconds"], 1800);
}

TEST(DocumentKeysTest, OnlyTheMarkedKeysAreLeftOutWhenAbsent) {
  VelkPhysicalData physical;
  EXPECT_FALSE(physical.getDictionary()["summaries"]["daily_activity_related_data"].contains(
      "non_structured_data"));
  physical.summaries.dailyActivityRelatedData.nonStructuredData = NonStructuredData{};
  EXPECT_EQ(
      physical.getDictionary()["summaries"]["daily_activity_related_data"]["non_structured_data"],
      nlohmann::json::object());

  VelkBodyData body;
  auto pressureJson = [&] {
    return body.getDictionary()["summaries"]["body_data"]["blood_glucose"]["blood_pressure"];
  };
  EXPECT_FALSE(pressureJson().contains("blood_pressure_day_avg_systolic_diastolic_bp_number"));
  EXPECT_FALSE(
      pressureJson().contains("blood_pressure_granular_data_systolic_diastolic_bp_number"));
  EXPECT_FALSE(pressureJson().contains("non_structured_data"));
  EXPECT_EQ(pressureJson()["nutrition"]["food_intake_number"], nullptr);

  auto& pressure = body.summaries.bodyData.bloodGlucose.bloodPressure;
  pressure.bloodPressureDayAvgSystolicDiastolicBpNumber.emplace();
  pressure.bloodPressureGranularDataSystolicDiastolicBpNumber.emplace();
  pressure.nutrition.foodIntakeNumber = FoodIntakeNumber{};
  EXPECT_EQ(pressureJson()["blood_pressure_day_avg_systolic_diastolic_bp_number"],
            nlohmann::json::array());
  EXPECT_EQ(pressureJson()["blood_pressure_granular_data_systolic_diastolic_bp_number"],
            nlohmann::json::array());
  EXPECT_EQ(pressureJson()["nutrition"]["food_intake_number"], nlohmann::json::object());

  // Everywhere else an absent value is null, never a missing key; the sleep document's
  // non-structured data included.
  const nlohmann::json sleep = VelkSleepData{}.getDictionary();
  ASSERT_TRUE(sleep["summaries"]["sleep_related_data"].contains("non_structured_data"));
  EXPECT_EQ(sleep["summaries"]["sleep_related_data"]["non_structured_data"], nullptr);
}

TEST(DocumentKeysTest, DemographicWithOnlyGenderWritesElevenKeys) {
  UserDemographic demographic;
  demographic.gender = "female";
  const nlohmann::json json = encodeRecord(demographic).value();
  ASSERT_EQ(json.size(), 11U);
  std::size_t nulls = 0;
  for (const auto& [key, value] : json.items()) {
    nulls += value.is_null() ? 1U : 0U;
  }
  EXPECT_EQ(nulls, 10U);
  EXPECT_EQ(json["gender"], "female");
}

}  // namespace
}  // namespace velk
