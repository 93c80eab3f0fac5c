// Codable documents and their golden files: dates as the encoder writes them, decoding that
// names the failing key path, and the key tables of the three documents.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <fstream>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "support/TempDir.h"
#include "velk/BodyDocument.h"
#include "velk/Codable.h"
#include "velk/PhysicalDocument.h"
#include "velk/SleepDocument.h"

namespace velk {
namespace {

// Golden files, documents with nothing or everything known, and the metadata of the three
// documents, which differs only in where it sits.
/// The parsed contents of tests/documents/golden/<name>.
nlohmann::json readGolden(const std::string& name) {
  std::ifstream in(testing::sourcePath("tests/documents/golden/" + name));
  return nlohmann::json::parse(in, nullptr, /*allow_exceptions=*/false);
}

VelkSleepMetadata& metadataOf(VelkSleepData& document) {
  return document.summaries.sleepRelatedData.metadata;
}
VelkPhysicalMetadata& metadataOf(VelkPhysicalData& document) {
  return document.summaries.dailyActivityRelatedData.metadata;
}
VelkBodyMetadata& metadataOf(VelkBodyData& document) {
  return document.summaries.bodyData.metadata;
}

/// A document as its builder makes it when nothing but the day is known: the metadata says where
/// the data came from and lists one demographic record that knows nothing; every value is absent.
template <class Root>
Root documentWithNothingKnown() {
  Root document;
  auto& metadata = metadataOf(document);
  metadata.datetime = Date::fromReferenceSeconds(731808000.0);  // 2024-03-10T00:00:00Z
  metadata.sourcesOfData = {"Apple Health"};
  metadata.userDemographics = {UserDemographic{}};
  return document;
}

/// Builds a record with every field present and every value distinct, by walking the same key
/// tables that the coding walks: optionals are set, lists hold two elements, numbers count up and
/// every other date carries a fraction of a second. A document filled this way reaches every
/// record type and every key.
class RecordFiller {
 public:
  template <class T>
  T make() {
    T value{};
    fill(value);
    return value;
  }

 private:
  template <class T>
  void fill(T& value) {
    if constexpr (Record<T>) {
      std::apply([&](const auto&... entries) { (fill(value.*(entries.member)), ...); }, T::fields);
    } else if constexpr (coding_detail::IsOptional<T>::value) {
      value.emplace();
      fill(*value);
    } else if constexpr (coding_detail::IsVector<T>::value) {
      value.resize(2);
      fill(value[0]);
      fill(value[1]);
    } else if constexpr (std::is_same_v<T, Date>) {
      // 2024-03-10T00:00:00Z plus one hour per date, and a quarter second on every other one.
      const std::int64_t n = ++counter_;
      const double fraction = n % 2 == 0 ? 0.25 : 0.0;
      value = Date::fromReferenceSeconds(731808000.0 + 3600.0 * static_cast<double>(n) + fraction);
    } else if constexpr (std::is_same_v<T, std::int64_t>) {
      value = ++counter_;
    } else {
      static_assert(std::is_same_v<T, std::string>);
      value = "text " + std::to_string(++counter_);
    }
  }

  std::int64_t counter_ = 0;
};

using nlohmann::json;

std::string dateText(double seconds) {
  const HrGranularDataBPM datum{Date::fromReferenceSeconds(seconds), 60};
  return encodeRecord(datum).value().at("datetime").dump();
}

TEST(DateCodingTest, WholeSecondsHaveNoFractionAndOthersReadBackExactly) {
  const std::pair<double, const char*> forms[] = {{0.0, "0"},
                                                  {-0.0, "0"},
                                                  {86400.0, "86400"},
                                                  {731808000.0, "731808000"},
                                                  {-3600.0, "-3600"},
                                                  {0.5, "0.5"},
                                                  {731808000.25, "731808000.25"}};
  for (const auto& [seconds, text] : forms) {
    EXPECT_EQ(dateText(seconds), text);
  }
  for (const double seconds : {0.1, 731808000.123456, -1e-7, 123456.789}) {
    const std::string text = dateText(seconds);
    EXPECT_EQ(json::parse(text).get<double>(), seconds) << text;
  }
  EXPECT_NE(VelkSleepData().getData()->find(R"("sleep_start_datetime":0,)"), std::string::npos);
}

TEST(DecodingTest, MissingOrNullOptionalIsAbsentAndEverythingElseIsKept) {
  json document = readGolden("physical_filled.json");
  json& heart = document["summaries"]["daily_activity_related_data"]["heart_rate_data"];
  heart.erase("hr_max_bpm");
  heart["hr_granular_data_bpm"] = nullptr;
  document["summaries"]["daily_activity_related_data"].erase("non_structured_data");

  const Result<VelkPhysicalData> decoded = VelkPhysicalData::fromDictionary(document);
  ASSERT_TRUE(decoded.isSuccess()) << decoded.error();
  // Written again, the document differs only in the null that replaces the missing key: the three
  // optionals came back absent (non-structured data is left out then), every other value kept.
  heart["hr_max_bpm"] = nullptr;
  EXPECT_EQ(decoded.value().getDictionary(), document);

  // Records without fields decode from any object; whole numbers may come in any number form.
  const auto nutrition = decodeRecord<Nutrition>(json{{"food_intake_number", {{"apple", 1}}}});
  ASSERT_TRUE(nutrition.isSuccess()) << nutrition.error();
  Nutrition onlyFood;
  onlyFood.foodIntakeNumber = FoodIntakeNumber{};
  EXPECT_EQ(nutrition.value(), onlyFood);
  const auto datum =
      decodeRecord<HrGranularDataBPM>(json::parse(R"({"datetime": 86400, "bpm": 72.0})"));
  ASSERT_TRUE(datum.isSuccess()) << datum.error();
  EXPECT_EQ(datum.value(), (HrGranularDataBPM{Date::fromReferenceSeconds(86400.0), 72}));
}

// One broken document per way of being wrong; each error must name the key path of the problem.
TEST(DecodingTest, FailuresNameTheKeyPath) {
  const std::string filled = readGolden("physical_filled.json").dump();
  auto edited = [&](const std::function<void(json&)>& edit) {
    json document = json::parse(filled);
    edit(document["summaries"]["daily_activity_related_data"]);
    return document.dump();
  };
  const std::string daily = "summaries.daily_activity_related_data.";
  const std::string heart = daily + "heart_rate_data.";
  const std::tuple<std::string, CodingErrorCode, std::string> failures[] = {
      {edited([](json& d) { d["metadata"].erase("datetime"); }), CodingErrorCode::keyNotFound,
       daily + "metadata.datetime: missing required key"},
      {edited([](json& d) { d["heart_rate_data"]["hr_granular_data_bpm"][1].erase("datetime"); }),
       CodingErrorCode::keyNotFound,
       heart + "hr_granular_data_bpm[1].datetime: missing required key"},
      {edited([](json& d) { d.erase("stress_data"); }), CodingErrorCode::keyNotFound,
       daily + "stress_data: missing required key"},
      {edited([](json& d) { d["metadata"]["sources_of_data"] = nullptr; }),
       CodingErrorCode::typeMismatch,
       daily + "metadata.sources_of_data: expected an array, found null"},
      {edited([](json& d) { d["heart_rate_data"]["hr_max_bpm"] = "72"; }),
       CodingErrorCode::typeMismatch, heart + "hr_max_bpm: expected a whole number, found string"},
      {edited([](json& d) { d["heart_rate_data"]["hr_avg_bpm"] = 72.5; }),
       CodingErrorCode::dataCorrupted,
       heart + "hr_avg_bpm: number 72.5 does not fit in a 64-bit integer"},
      {edited([](json& d) {
         d["heart_rate_data"]["hr_avg_bpm"] = std::numeric_limits<std::uint64_t>::max();
       }),
       CodingErrorCode::dataCorrupted,
       heart + "hr_avg_bpm: number 18446744073709551615 does not fit in a 64-bit integer"},
      {edited([](json& d) { d["metadata"]["datetime"] = "2024-03-10"; }),
       CodingErrorCode::typeMismatch,
       daily + "metadata.datetime: expected a date as a number of seconds, found string"},
      {edited([](json& d) { d["metadata"]["user_demographics"][0]["sex"] = 1; }),
       CodingErrorCode::typeMismatch,
       daily + "metadata.user_demographics[0].sex: expected a string, found an integer"},
      {"[]", CodingErrorCode::typeMismatch, "(root): expected an object, found array"},
      {"{\"data_structure\": ", CodingErrorCode::dataCorrupted,
       "(root): the data is not valid JSON"},
  };
  for (const auto& [document, code, message] : failures) {
    const Result<VelkPhysicalData> decoded = VelkPhysicalData::fromData(document);
    ASSERT_TRUE(decoded.isFailure()) << message;
    EXPECT_EQ(decoded.error().domain(), kCodingErrorDomain) << message;
    EXPECT_EQ(decoded.error().code(), static_cast<std::int64_t>(code)) << message;
    EXPECT_EQ(decoded.error().message(), message);
  }
}

TEST(EncodingTest, NonFiniteDateIsAnErrorNamingItsPath) {
  VelkSleepData document;
  document.summaries.sleepRelatedData.sleepHeartRateRelatedData.hrGranularDataBPM = {
      HrGranularDataBPM{Date::fromReferenceSeconds(60.0), 70},
      HrGranularDataBPM{Date::fromReferenceSeconds(std::numeric_limits<double>::infinity()), 71}};
  const Result<json> encoded = encodeRecord(document);
  ASSERT_TRUE(encoded.isFailure());
  EXPECT_EQ(encoded.error().code(), static_cast<std::int64_t>(CodingErrorCode::invalidValue));
  EXPECT_EQ(encoded.error().message(),
            "summaries.sleep_related_data.sleep_heart_rate_related_data.hr_granular_data_bpm[1]."
            "datetime: a date that is not a finite number cannot be written as JSON");
}

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
    document.summaries = RecordFiller().make<decltype(document.summaries)>();
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

// A few keys are left out when absent (the goldens with nothing known show which); when present
// they are written even when empty, not dropped as if absent.
TEST(DocumentKeysTest, MarkedKeysArePresentWhenSetEvenIfEmpty) {
  VelkBodyData body;
  auto& bloodPressure = body.summaries.bodyData.bloodGlucose.bloodPressure;
  bloodPressure.bloodPressureDayAvgSystolicDiastolicBpNumber.emplace();
  bloodPressure.bloodPressureGranularDataSystolicDiastolicBpNumber.emplace();
  const json pressure =
      body.getDictionary()["summaries"]["body_data"]["blood_glucose"]["blood_pressure"];
  for (const char* key : {"blood_pressure_day_avg_systolic_diastolic_bp_number",
                          "blood_pressure_granular_data_systolic_diastolic_bp_number"}) {
    EXPECT_EQ(pressure.at(key), json::array()) << key;
  }
}

}  // namespace
}  // namespace velk
