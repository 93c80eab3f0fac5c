// The three documents as hosts receive them: held against golden files key by key, read back
// into records, and falling back to an empty dictionary or no data when they cannot be encoded.
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "DocumentTestSupport.h"

namespace velk {
namespace {

using nlohmann::json;
using velk::testing::documentWithNothingKnown;
using velk::testing::metadataOf;
using velk::testing::readGolden;

template <class Root>
class DocumentGoldenTest : public ::testing::Test {
 protected:
  static std::string golden(const std::string& variant) {
    const char* kind = std::is_same_v<Root, VelkSleepData>      ? "sleep"
                       : std::is_same_v<Root, VelkPhysicalData> ? "physical"
                                                                : "body";
    return std::string(kind) + "_" + variant + ".json";
  }

  static Root filledDocument() {
    Root document;
    document.summaries = testing::RecordFiller().make<decltype(document.summaries)>();
    return document;
  }
};

using Roots = ::testing::Types<VelkSleepData, VelkPhysicalData, VelkBodyData>;
TYPED_TEST_SUITE(DocumentGoldenTest, Roots);

// Each document, with nothing known and with every value filled, writes exactly the keys of its
// golden file (a missing or extra key shows as a patch operation) and reads back to the same
// records from its bytes, its dictionary and the golden file itself, so that a key misspelt the
// same way in both directions cannot pass.
TYPED_TEST(DocumentGoldenTest, DocumentsMatchTheirGoldenFilesAndReadBack) {
  const std::pair<const char*, TypeParam> cases[] = {
      {"nothing_known", documentWithNothingKnown<TypeParam>()}, {"filled", this->filledDocument()}};
  for (const auto& [variant, document] : cases) {
    SCOPED_TRACE(variant);
    const json golden = readGolden(this->golden(variant));
    ASSERT_TRUE(golden.is_object());
    EXPECT_EQ(json::diff(golden, document.getDictionary()), json::array());

    const std::optional<std::string> data = document.getData();
    ASSERT_TRUE(data.has_value());
    for (const Result<TypeParam>& decoded :
         {TypeParam::fromData(*data), TypeParam::fromDictionary(document.getDictionary()),
          TypeParam::fromDictionary(golden)}) {
      ASSERT_TRUE(decoded.isSuccess()) << decoded.error();
      EXPECT_EQ(decoded.value(), document);
    }
  }
}

TYPED_TEST(DocumentGoldenTest, UnencodableDocumentFallsBackToEmptyDictionaryAndNoData) {
  for (const double seconds :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity()}) {
    auto document = this->filledDocument();
    metadataOf(document).datetime = Date::fromReferenceSeconds(seconds);
    EXPECT_EQ(document.getDictionary(), json::object());
    EXPECT_FALSE(document.getData().has_value());
  }
  // Text that is not UTF-8 cannot become JSON bytes either.
  auto document = documentWithNothingKnown<TypeParam>();
  metadataOf(document).userID = std::string("user \xff\xfe");
  EXPECT_EQ(document.getDictionary(), json::object());
  EXPECT_FALSE(document.getData().has_value());
}

// A few keys are left out when absent and written as an empty value when present; everywhere
// else an absent value is null, never a missing key (the sleep document's non-structured data
// included).
TEST(DocumentKeysTest, OnlyTheMarkedKeysAreLeftOutWhenAbsent) {
  VelkPhysicalData physical;
  VelkBodyData body;
  auto daily = [&] { return physical.getDictionary()["summaries"]["daily_activity_related_data"]; };
  auto pressure = [&] {
    return body.getDictionary()["summaries"]["body_data"]["blood_glucose"]["blood_pressure"];
  };
  const char* const pressureLists[] = {"blood_pressure_day_avg_systolic_diastolic_bp_number",
                                       "blood_pressure_granular_data_systolic_diastolic_bp_number"};
  EXPECT_FALSE(daily().contains("non_structured_data"));
  for (const char* key : pressureLists) {
    EXPECT_FALSE(pressure().contains(key)) << key;
  }
  EXPECT_FALSE(pressure().contains("non_structured_data"));
  EXPECT_EQ(pressure()["nutrition"]["food_intake_number"], nullptr);
  EXPECT_EQ(
      VelkSleepData{}.getDictionary()["summaries"]["sleep_related_data"].at("non_structured_data"),
      nullptr);

  physical.summaries.dailyActivityRelatedData.nonStructuredData = NonStructuredData{};
  auto& bloodPressure = body.summaries.bodyData.bloodGlucose.bloodPressure;
  bloodPressure.bloodPressureDayAvgSystolicDiastolicBpNumber.emplace();
  bloodPressure.bloodPressureGranularDataSystolicDiastolicBpNumber.emplace();
  bloodPressure.nutrition.foodIntakeNumber = FoodIntakeNumber{};
  EXPECT_EQ(daily()["non_structured_data"], json::object());
  for (const char* key : pressureLists) {
    EXPECT_EQ(pressure()[key], json::array()) << key;
  }
  EXPECT_EQ(pressure()["nutrition"]["food_intake_number"], json::object());
}

}  // namespace
}  // namespace velk
