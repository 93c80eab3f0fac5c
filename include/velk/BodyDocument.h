// The body summary document: the user's body for one day. Weight and height are filled today;
// blood glucose, blood pressure, hydration, heart rate, mood, nutrition, oxygenation and
// temperature have their places and are written with null values.
//
// The nesting is what backends read, odd as it is: blood pressure sits inside blood glucose, and
// everything from hydration to temperature inside blood pressure.
//
//   VelkBodyData                       "data_structure": "body_health", "version": 1
//   └ VelkBodySummaries                "summaries"
//     └ BodyData                       "body_data"
//       ├ VelkBodyMetadata             "metadata"
//       ├ Body                         "body"
//       └ BloodGlucose                 "blood_glucose"
//         └ BloodPressure              "blood_pressure"
//           ├ [..]?                    the two blood-pressure lists (left out when absent)
//           ├ Hydration, HeartRateData, Mood, Nutrition, OxygenationData, TemperatureRelatedData
//           └ NonStructuredData?       "non_structured_data" (left out when absent)
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

#include "velk/Codable.h"
#include "velk/Date.h"
#include "velk/DocumentConventions.h"
#include "velk/PhysicalDocument.h"
#include "velk/Result.h"
#include "velk/SleepDocument.h"

namespace velk {

/// One reading of both pressures.
struct BloodPressureSystolicDiastolicBpNumber {
  std::int64_t systolicBp = 0;
  std::int64_t diastolicBp = 0;

  bool operator==(const BloodPressureSystolicDiastolicBpNumber&) const = default;

  static constexpr auto fields = std::tuple{
      field("systolic_bp", &BloodPressureSystolicDiastolicBpNumber::systolicBp),
      field("diastolic_bp", &BloodPressureSystolicDiastolicBpNumber::diastolicBp),
  };
};

/// The readings taken at one time point (a list, as a point may hold several).
struct BloodPressureGranularDataSystolicDiastolicBpNumber {
  Date datetime;
  std::vector<BloodPressureSystolicDiastolicBpNumber> bloodPressureSystolicDiastolicBpNumber;

  bool operator==(const BloodPressureGranularDataSystolicDiastolicBpNumber&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &BloodPressureGranularDataSystolicDiastolicBpNumber::datetime),
      field("blood_pressure_systolic_diastolic_bp_number",
            &BloodPressureGranularDataSystolicDiastolicBpNumber::
                bloodPressureSystolicDiastolicBpNumber),
  };
};

/// Note the capital L of the mg/dL keys.
struct BloodGlucoseGranularDataMgPerDL {
  Date datetime;
  std::int64_t bloodGlucoseMgPerDL = 0;

  bool operator==(const BloodGlucoseGranularDataMgPerDL&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &BloodGlucoseGranularDataMgPerDL::datetime),
      field("blood_glucose_mg_per_dL", &BloodGlucoseGranularDataMgPerDL::bloodGlucoseMgPerDL),
  };
};

struct HydrationAmountGranularDataMlNumber {
  Date datetime;
  std::int64_t intervalDurationSeconds = 0;
  std::int64_t hydrationAmountMl = 0;

  bool operator==(const HydrationAmountGranularDataMlNumber&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &HydrationAmountGranularDataMlNumber::datetime),
      field("interval_duration_seconds",
            &HydrationAmountGranularDataMlNumber::intervalDurationSeconds),
      field("hydration_amount_ml", &HydrationAmountGranularDataMlNumber::hydrationAmountMl),
  };
};

struct HydrationLevelGranularDataPercentageNumber {
  Date datetime;
  std::int64_t intervalDurationSeconds = 0;
  std::int64_t hydrationLevelPercentage = 0;

  bool operator==(const HydrationLevelGranularDataPercentageNumber&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &HydrationLevelGranularDataPercentageNumber::datetime),
      field("interval_duration_seconds",
            &HydrationLevelGranularDataPercentageNumber::intervalDurationSeconds),
      field("hydration_level_percentage",
            &HydrationLevelGranularDataPercentageNumber::hydrationLevelPercentage),
  };
};

struct MoodGranularDataScale {
  Date datetime;
  std::int64_t intervalDurationSeconds = 0;
  std::int64_t moodScale = 0;

  bool operator==(const MoodGranularDataScale&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &MoodGranularDataScale::datetime),
      field("interval_duration_seconds", &MoodGranularDataScale::intervalDurationSeconds),
      field("mood_scale", &MoodGranularDataScale::moodScale),
  };
};

/// A place for food intake without a schema yet: present, it encodes as {}.
struct FoodIntakeNumber {
  bool operator==(const FoodIntakeNumber&) const = default;

  static constexpr auto fields = std::tuple{};
};

struct Hydration {
  std::optional<std::int64_t> waterTotalConsumptionMlNumber;
  std::optional<std::vector<HydrationAmountGranularDataMlNumber>>
      hydrationAmountGranularDataMlNumber;
  std::optional<std::vector<HydrationLevelGranularDataPercentageNumber>>
      hydrationLevelGranularDataPercentageNumber;

  bool operator==(const Hydration&) const = default;

  static constexpr auto fields = std::tuple{
      field("water_total_consumption_ml_number", &Hydration::waterTotalConsumptionMlNumber),
      field("hydration_amount_granular_data_ml_number",
            &Hydration::hydrationAmountGranularDataMlNumber),
      field("hydration_level_granular_data_percentage_number",
            &Hydration::hydrationLevelGranularDataPercentageNumber),
  };
};

struct Mood {
  std::optional<std::int64_t> moodMinimumScale;
  std::optional<std::int64_t> moodAvgScale;
  std::optional<std::int64_t> moodMaxScale;
  std::optional<std::vector<MoodGranularDataScale>> moodGranularDataScale;
  std::optional<std::int64_t> moodDeltaScale;

  bool operator==(const Mood&) const = default;

  static constexpr auto fields = std::tuple{
      field("mood_minimum_scale", &Mood::moodMinimumScale),
      field("mood_avg_scale", &Mood::moodAvgScale),
      field("mood_max_scale", &Mood::moodMaxScale),
      field("mood_granular_data_scale", &Mood::moodGranularDataScale),
      field("mood_delta_scale", &Mood::moodDeltaScale),
  };
};

/// Grams and milligrams as the keys say.
struct Nutrition {
  std::optional<FoodIntakeNumber> foodIntakeNumber;
  std::optional<std::int64_t> caloriesIntakeNumber;
  std::optional<std::int64_t> proteinIntakeGNumber;
  std::optional<std::int64_t> sugarIntakeGNumber;
  std::optional<std::int64_t> fatIntakeGNumber;
  std::optional<std::int64_t> transFatIntakeGNumber;
  std::optional<std::int64_t> carbohydratesIntakeGNumber;
  std::optional<std::int64_t> fiberIntakeGNumber;
  std::optional<std::int64_t> alcoholIntakeGNumber;
  std::optional<std::int64_t> sodiumIntakeMgNumber;
  std::optional<std::int64_t> cholesterolIntakeMgNumber;

  bool operator==(const Nutrition&) const = default;

  static constexpr auto fields = std::tuple{
      field("food_intake_number", &Nutrition::foodIntakeNumber),
      field("calories_intake_number", &Nutrition::caloriesIntakeNumber),
      field("protein_intake_g_number", &Nutrition::proteinIntakeGNumber),
      field("sugar_intake_g_number", &Nutrition::sugarIntakeGNumber),
      field("fat_intake_g_number", &Nutrition::fatIntakeGNumber),
      field("trans_fat_intake_g_number", &Nutrition::transFatIntakeGNumber),
      field("carbohydrates_intake_g_number", &Nutrition::carbohydratesIntakeGNumber),
      field("fiber_intake_g_number", &Nutrition::fiberIntakeGNumber),
      field("alcohol_intake_g_number", &Nutrition::alcoholIntakeGNumber),
      field("sodium_intake_mg_number", &Nutrition::sodiumIntakeMgNumber),
      field("cholesterol_intake_mg_number", &Nutrition::cholesterolIntakeMgNumber),
  };
};

/// The two lists and the non-structured data are left out of the JSON when absent; every other
/// member is a record that is always written.
struct BloodPressure {
  /// A list of readings, not one pair.
  std::optional<std::vector<BloodPressureSystolicDiastolicBpNumber>>
      bloodPressureDayAvgSystolicDiastolicBpNumber;
  std::optional<std::vector<BloodPressureGranularDataSystolicDiastolicBpNumber>>
      bloodPressureGranularDataSystolicDiastolicBpNumber;
  Hydration hydration;
  HeartRateData heartRateData;
  Mood mood;
  Nutrition nutrition;
  OxygenationData oxygenationData;
  TemperatureRelatedData temperatureRelatedData;
  std::optional<NonStructuredData> nonStructuredData;

  bool operator==(const BloodPressure&) const = default;

  static constexpr auto fields = std::tuple{
      omitWhenAbsent(field("blood_pressure_day_avg_systolic_diastolic_bp_number",
                           &BloodPressure::bloodPressureDayAvgSystolicDiastolicBpNumber)),
      omitWhenAbsent(field("blood_pressure_granular_data_systolic_diastolic_bp_number",
                           &BloodPressure::bloodPressureGranularDataSystolicDiastolicBpNumber)),
      field("hydration", &BloodPressure::hydration),
      field("heart_rate_data", &BloodPressure::heartRateData),
      field("mood", &BloodPressure::mood),
      field("nutrition", &BloodPressure::nutrition),
      field("oxygenation_data", &BloodPressure::oxygenationData),
      field("temperature_related_data", &BloodPressure::temperatureRelatedData),
      omitWhenAbsent(field("non_structured_data", &BloodPressure::nonStructuredData)),
  };
};

struct BloodGlucose {
  std::optional<std::int64_t> bloodGlucoseDayAvgMgPerDLNumber;
  std::optional<std::vector<BloodGlucoseGranularDataMgPerDL>> bloodGlucoseGranularDataMgPerDL;
  BloodPressure bloodPressure;

  bool operator==(const BloodGlucose&) const = default;

  static constexpr auto fields = std::tuple{
      field("blood_glucose_day_avg_mg_per_dL_number",
            &BloodGlucose::bloodGlucoseDayAvgMgPerDLNumber),
      field("blood_glucose_granular_data_mg_per_dL",
            &BloodGlucose::bloodGlucoseGranularDataMgPerDL),
      field("blood_pressure", &BloodGlucose::bloodPressure),
  };
};

/// Measurements, whole numbers in the unit the key names.
struct Body {
  std::optional<std::int64_t> waistCircumferenceCMNumber;
  std::optional<std::int64_t> hipCircumferenceCMNumber;
  std::optional<std::int64_t> chestCircumferenceCMNumber;
  std::optional<std::int64_t> boneCompositionPercentageNumber;
  std::optional<std::int64_t> muscleCompositionPercentageNumber;
  std::optional<std::int64_t> weightKgNumber;
  std::optional<std::int64_t> heightCMNumber;

  bool operator==(const Body&) const = default;

  static constexpr auto fields = std::tuple{
      field("waist_circumference_cm_number", &Body::waistCircumferenceCMNumber),
      field("hip_circumference_cm_number", &Body::hipCircumferenceCMNumber),
      field("chest_circumference_cm_number", &Body::chestCircumferenceCMNumber),
      field("bone_composition_percentage_number", &Body::boneCompositionPercentageNumber),
      field("muscle_composition_percentage_number", &Body::muscleCompositionPercentageNumber),
      field("weight_kg_number", &Body::weightKgNumber),
      field("height_cm_number", &Body::heightCMNumber),
  };
};

struct VelkBodyMetadata {
  Date datetime;
  std::optional<std::string> userID;
  std::vector<std::string> sourcesOfData;
  std::vector<UserDemographic> userDemographics;
  std::optional<std::int64_t> bodyHealthScore;

  bool operator==(const VelkBodyMetadata&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &VelkBodyMetadata::datetime),
      field("user_id", &VelkBodyMetadata::userID),
      field("sources_of_data", &VelkBodyMetadata::sourcesOfData),
      field("user_demographics", &VelkBodyMetadata::userDemographics),
      field("body_health_score", &VelkBodyMetadata::bodyHealthScore),
  };
};

struct BodyData {
  VelkBodyMetadata metadata;
  Body body;
  BloodGlucose bloodGlucose;

  bool operator==(const BodyData&) const = default;

  static constexpr auto fields = std::tuple{
      field("metadata", &BodyData::metadata),
      field("body", &BodyData::body),
      field("blood_glucose", &BodyData::bloodGlucose),
  };
};

struct VelkBodySummaries {
  BodyData bodyData;

  bool operator==(const VelkBodySummaries&) const = default;

  static constexpr auto fields = std::tuple{
      field("body_data", &VelkBodySummaries::bodyData),
  };
};

/// The body document's root.
struct VelkBodyData {
  static constexpr std::string_view kDataStructure = "body_health";
  static constexpr std::int64_t kVersion = 1;

  std::string dataStructure = std::string(kDataStructure);
  std::int64_t version = kVersion;
  VelkBodySummaries summaries;

  /// The document as a JSON object; an empty object if it cannot be encoded.
  nlohmann::json getDictionary() const;
  /// The document as UTF-8 JSON text; absent if it cannot be encoded.
  std::optional<std::string> getData() const;

  /// Reads a document from its dictionary form; the error names the key path of the problem.
  static Result<VelkBodyData> fromDictionary(const nlohmann::json& dictionary);
  /// Reads a document from UTF-8 JSON text.
  static Result<VelkBodyData> fromData(std::string_view data);

  bool operator==(const VelkBodyData&) const = default;

  static constexpr auto fields = std::tuple{
      field("data_structure", &VelkBodyData::dataStructure),
      field("version", &VelkBodyData::version),
      field("summaries", &VelkBodyData::summaries),
  };
};

}  // namespace velk
