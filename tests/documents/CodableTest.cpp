// The coding rules that every record shares: the number form of dates, optional values on the way
// in, and decoding errors that say where in the document the problem is.
#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "DocumentTestSupport.h"
#include "RecordFiller.h"

namespace velk {
namespace {

using velk::testing::readGolden;

std::string dateText(double seconds) {
  const HrGranularDataBPM datum{Date::fromReferenceSeconds(seconds), 60};
  return encodeRecord(datum).value().at("datetime").dump();
}

TEST(DateCodingTest, WholeSecondsHaveNoFractionAndOthersReadBackExactly) {
  EXPECT_EQ(dateText(0.0), "0");
  EXPECT_EQ(dateText(-0.0), "0");
  EXPECT_EQ(dateText(86400.0), "86400");
  EXPECT_EQ(dateText(731808000.0), "731808000");
  EXPECT_EQ(dateText(-3600.0), "-3600");
  EXPECT_EQ(dateText(0.5), "0.5");
  EXPECT_EQ(dateText(731808000.25), "731808000.25");
  for (const double seconds : {0.1, 731808000.123456, -1e-7, 123456.789}) {
    const std::string text = dateText(seconds);
    EXPECT_EQ(nlohmann::json::parse(text).get<double>(), seconds) << text;
  }

  const VelkSleepData document;
  EXPECT_NE(document.getData()->find(R"("sleep_start_datetime":0,)"), std::string::npos);
}

TEST(DecodingTest, MissingOrNullOptionalIsAbsentAndEverythingElseIsKept) {
  nlohmann::json json = readGolden("physical_filled.json");
  nlohmann::json& heart = json["summaries"]["daily_activity_related_data"]["heart_rate_data"];
  heart.erase("hr_max_bpm");
  heart["hr_granular_data_bpm"] = nullptr;
  json["summaries"]["daily_activity_related_data"].erase("non_structured_data");

  const Result<VelkPhysicalData> decoded = VelkPhysicalData::fromDictionary(json);
  ASSERT_TRUE(decoded.isSuccess()) << decoded.error();
  const DailyActivityRelatedData& daily = decoded.value().summaries.dailyActivityRelatedData;
  EXPECT_FALSE(daily.heartRateData.hrMaxBPM.has_value());
  EXPECT_FALSE(daily.heartRateData.hrGranularDataBPM.has_value());
  EXPECT_FALSE(daily.nonStructuredData.has_value());
  EXPECT_EQ(daily.heartRateData.hrMinimumBPM, heart["hr_minimum_bpm"].get<std::int64_t>());
  // Read back and written again, the document differs only in the null that replaces the
  // missing key.
  heart["hr_max_bpm"] = nullptr;
  EXPECT_EQ(decoded.value().getDictionary(), json);
}

TEST(DecodingTest, EmptyRecordsDecodeFromAnyObject) {
  const auto decoded =
      decodeRecord<Nutrition>(nlohmann::json{{"food_intake_number", {{"apple", 1}}}});
  ASSERT_TRUE(decoded.isSuccess()) << decoded.error();
  EXPECT_EQ(decoded.value().foodIntakeNumber, FoodIntakeNumber{});
  EXPECT_FALSE(decoded.value().caloriesIntakeNumber.has_value());
}

TEST(DecodingTest, IntegralNumbersAreAcceptedInAnyNumberForm) {
  const auto decoded =
      decodeRecord<HrGranularDataBPM>(nlohmann::json::parse(R"({"datetime": 86400, "bpm": 72.0})"));
  ASSERT_TRUE(decoded.isSuccess()) << decoded.error();
  EXPECT_EQ(decoded.value(), (HrGranularDataBPM{Date::fromReferenceSeconds(86400.0), 72}));
}

struct DecodingFailure {
  const char* description;
  std::string document;  // a physical document, as text
  CodingErrorCode code;
  std::string message;
};

// One broken document per way of being wrong; each error must name the key path of the problem.
TEST(DecodingTest, FailuresNameTheKeyPath) {
  const std::string filled = readGolden("physical_filled.json").dump();
  auto edited = [&](auto edit) {
    nlohmann::json json = nlohmann::json::parse(filled);
    edit(json["summaries"]["daily_activity_related_data"]);
    return json.dump();
  };
  const std::string heart = "summaries.daily_activity_related_data.heart_rate_data.";
  const DecodingFailure failures[] = {
      {"missing date in metadata",
       edited([](nlohmann::json& d) { d["metadata"].erase("datetime"); }),
       CodingErrorCode::keyNotFound,
       "summaries.daily_activity_related_data.metadata.datetime: missing required key"},
      {"missing date in a granular datum", edited([](nlohmann::json& d) {
         d["heart_rate_data"]["hr_granular_data_bpm"][1].erase("datetime");
       }),
       CodingErrorCode::keyNotFound,
       heart + "hr_granular_data_bpm[1].datetime: missing required key"},
      {"missing section", edited([](nlohmann::json& d) { d.erase("stress_data"); }),
       CodingErrorCode::keyNotFound,
       "summaries.daily_activity_related_data.stress_data: missing required key"},
      {"null in a required field",
       edited([](nlohmann::json& d) { d["metadata"]["sources_of_data"] = nullptr; }),
       CodingErrorCode::typeMismatch,
       "summaries.daily_activity_related_data.metadata.sources_of_data: expected an array, found "
       "null"},
      {"text for a number",
       edited([](nlohmann::json& d) { d["heart_rate_data"]["hr_max_bpm"] = "72"; }),
       CodingErrorCode::typeMismatch, heart + "hr_max_bpm: expected a whole number, found string"},
      {"fraction for a whole number",
       edited([](nlohmann::json& d) { d["heart_rate_data"]["hr_avg_bpm"] = 72.5; }),
       CodingErrorCode::dataCorrupted,
       heart + "hr_avg_bpm: number 72.5 does not fit in a 64-bit integer"},
      {"number beyond 64 bits", edited([](nlohmann::json& d) {
         d["heart_rate_data"]["hr_avg_bpm"] = std::numeric_limits<std::uint64_t>::max();
       }),
       CodingErrorCode::dataCorrupted,
       heart + "hr_avg_bpm: number 18446744073709551615 does not fit in a 64-bit integer"},
      {"text for a date",
       edited([](nlohmann::json& d) { d["metadata"]["datetime"] = "2024-03-10"; }),
       CodingErrorCode::typeMismatch,
       "summaries.daily_activity_related_data.metadata.datetime: expected a date as a number of "
       "seconds, found string"},
      {"number for a text",
       edited([](nlohmann::json& d) { d["metadata"]["user_demographics"][0]["sex"] = 1; }),
       CodingErrorCode::typeMismatch,
       "summaries.daily_activity_related_data.metadata.user_demographics[0].sex: expected a "
       "string, found an integer"},
      {"a list for a document", "[]", CodingErrorCode::typeMismatch,
       "(root): expected an object, found array"},
      {"not JSON", "{\"data_structure\": ", CodingErrorCode::dataCorrupted,
       "(root): the data is not valid JSON"},
  };
  for (const DecodingFailure& failure : failures) {
    const Result<VelkPhysicalData> decoded = VelkPhysicalData::fromData(failure.document);
    ASSERT_TRUE(decoded.isFailure()) << failure.description;
    EXPECT_EQ(decoded.error().domain(), kCodingErrorDomain) << failure.description;
    EXPECT_EQ(decoded.error().code(), static_cast<std::int64_t>(failure.code))
        << failure.description;
    EXPECT_EQ(decoded.error().message(), failure.message) << failure.description;
  }
}

TEST(EncodingTest, NonFiniteDateIsAnErrorNamingItsPath) {
  VelkSleepData document;
  document.summaries.sleepRelatedData.sleepHeartRateRelatedData.hrGranularDataBPM = {
      HrGranularDataBPM{Date::fromReferenceSeconds(60.0), 70},
      HrGranularDataBPM{Date::fromReferenceSeconds(std::numeric_limits<double>::infinity()), 71}};
  const Result<nlohmann::json> encoded = encodeRecord(document);
  ASSERT_TRUE(encoded.isFailure());
  EXPECT_EQ(encoded.error().code(), static_cast<std::int64_t>(CodingErrorCode::invalidValue));
  EXPECT_EQ(encoded.error().message(),
            "summaries.sleep_related_data.sleep_heart_rate_related_data.hr_granular_data_bpm[1]."
            "datetime: a date that is not a finite number cannot be written as JSON");
}

}  // namespace
}  // namespace velk
