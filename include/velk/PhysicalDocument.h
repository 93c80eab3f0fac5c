// The physical summary document: one calendar day of activity. Steps, calories, heart rate and
// heart-rate variability are filled today; distance, elevation, swimming, oxygenation, activity
// intensity and stress are written with every key null.
//
//   VelkPhysicalData                   "data_structure": "physical_health", "version": 1
//   └ VelkPhysicalSummaries            "summaries"
//     └ DailyActivityRelatedData       "daily_activity_related_data"
//       ├ VelkPhysicalMetadata         "metadata"
//       ├ DistanceData                 "distance_data"
//       ├ OxygenationData              "oxygenation_data"
//       ├ ActivityData                 "activity_data"
//       ├ CaloriesData                 "calories_data"
//       ├ HeartRateData                "heart_rate_data"
//       ├ StressData                   "stress_data"
//       └ NonStructuredData?           "non_structured_data" (left out when absent)
//
// HeartRateData and OxygenationData are also part of the body document.
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
#include "velk/Result.h"
#include "velk/SleepDocument.h"

namespace velk {

// Interval records: a value over the interval of `intervalDurationSeconds` that starts at
// `datetime`.

struct StepsGranularDataStepsPerHr {
  Date datetime;
  std::int64_t intervalDurationSeconds = 0;
  std::int64_t steps = 0;

  bool operator==(const StepsGranularDataStepsPerHr&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &StepsGranularDataStepsPerHr::datetime),
      field("interval_duration_seconds", &StepsGranularDataStepsPerHr::intervalDurationSeconds),
      field("steps", &StepsGranularDataStepsPerHr::steps),
  };
};

struct ElevationGranularDataMeter {
  Date datetime;
  std::int64_t intervalDurationSeconds = 0;
  std::int64_t elevationChange = 0;  // meters

  bool operator==(const ElevationGranularDataMeter&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &ElevationGranularDataMeter::datetime),
      field("interval_duration_seconds", &ElevationGranularDataMeter::intervalDurationSeconds),
      field("elevation_change", &ElevationGranularDataMeter::elevationChange),
  };
};

struct FloorsClimbedGranularDataFloor {
  Date datetime;
  std::int64_t intervalDurationSeconds = 0;
  std::int64_t floorsClimbed = 0;

  bool operator==(const FloorsClimbedGranularDataFloor&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &FloorsClimbedGranularDataFloor::datetime),
      field("interval_duration_seconds", &FloorsClimbedGranularDataFloor::intervalDurationSeconds),
      field("floors_climbed", &FloorsClimbedGranularDataFloor::floorsClimbed),
  };
};

struct SwimmingDistanceGranularDataMeter {
  Date datetime;
  std::int64_t intervalDurationSeconds = 0;
  std::int64_t swimmingDistanceMeters = 0;

  bool operator==(const SwimmingDistanceGranularDataMeter&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &SwimmingDistanceGranularDataMeter::datetime),
      field("interval_duration_seconds",
            &SwimmingDistanceGranularDataMeter::intervalDurationSeconds),
      field("swimming_distance_meters", &SwimmingDistanceGranularDataMeter::swimmingDistanceMeters),
  };
};

/// Reuses the day total's key "traveled_distance_meters" for the interval's value, on purpose.
struct TraveledDistanceGranularDataMeter {
  Date datetime;
  std::int64_t intervalDurationSeconds = 0;
  std::int64_t traveledDistanceMeters = 0;

  bool operator==(const TraveledDistanceGranularDataMeter&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &TraveledDistanceGranularDataMeter::datetime),
      field("interval_duration_seconds",
            &TraveledDistanceGranularDataMeter::intervalDurationSeconds),
      field("traveled_distance_meters", &TraveledDistanceGranularDataMeter::traveledDistanceMeters),
  };
};

// Point records: one time point and its value.

struct ActivityLevelGranularDataNumber {
  Date datetime;
  std::int64_t activityLevel = 0;

  bool operator==(const ActivityLevelGranularDataNumber&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &ActivityLevelGranularDataNumber::datetime),
      field("activity_level", &ActivityLevelGranularDataNumber::activityLevel),
  };
};

struct HrvRmssdGranularDataNumber {
  Date datetime;
  std::int64_t hrvRmssd = 0;  // ms

  bool operator==(const HrvRmssdGranularDataNumber&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &HrvRmssdGranularDataNumber::datetime),
      field("hrv_rmssd", &HrvRmssdGranularDataNumber::hrvRmssd),
  };
};

struct HrvSdnnGranularDataNumber {
  Date datetime;
  std::int64_t hrvSdnn = 0;  // ms

  bool operator==(const HrvSdnnGranularDataNumber&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &HrvSdnnGranularDataNumber::datetime),
      field("hrv_sdnn", &HrvSdnnGranularDataNumber::hrvSdnn),
  };
};

/// The name says litres per minute, the key ml/min/kg; hosts know both as they stand.
struct Vo2GranularDataLiterPerMin {
  Date datetime;
  std::int64_t vo2MlPerMinPerKg = 0;

  bool operator==(const Vo2GranularDataLiterPerMin&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &Vo2GranularDataLiterPerMin::datetime),
      field("vo2_ml_per_min_per_kg", &Vo2GranularDataLiterPerMin::vo2MlPerMinPerKg),
  };
};

struct StressGranularDataScoreNumber {
  Date datetime;
  std::int64_t stressScore = 0;

  bool operator==(const StressGranularDataScoreNumber&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &StressGranularDataScoreNumber::datetime),
      field("stress_score", &StressGranularDataScoreNumber::stressScore),
  };
};

struct VelkPhysicalMetadata {
  /// The day summarised.
  Date datetime;
  std::optional<std::string> userID;
  std::vector<std::string> sourcesOfData;
  std::vector<UserDemographic> userDemographics;
  std::optional<std::int64_t> physicalHealthScore;

  bool operator==(const VelkPhysicalMetadata&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &VelkPhysicalMetadata::datetime),
      field("user_id", &VelkPhysicalMetadata::userID),
      field("sources_of_data", &VelkPhysicalMetadata::sourcesOfData),
      field("user_demographics", &VelkPhysicalMetadata::userDemographics),
      field("physical_health_score", &VelkPhysicalMetadata::physicalHealthScore),
  };
};

struct DistanceData {
  std::optional<std::int64_t> stepsPerDayNumber;
  std::optional<std::vector<StepsGranularDataStepsPerHr>> stepsGranularDataStepsPerHr;
  std::optional<std::int64_t> activeStepsPerDayNumber;
  std::optional<std::vector<StepsGranularDataStepsPerHr>> activeStepsGranularDataStepsPerHr;
  std::optional<std::int64_t> walkedDistanceMeters;
  std::optional<std::int64_t> traveledDistanceMeters;
  std::optional<std::vector<TraveledDistanceGranularDataMeter>> traveledDistanceGranularDataMeters;
  std::optional<std::int64_t> floorsClimbedNumber;
  std::optional<std::vector<FloorsClimbedGranularDataFloor>> floorsClimbedGranularDataFloors;
  std::optional<std::int64_t> elevationAvgAltitudeMeters;
  std::optional<std::int64_t> elevationMinimumAltitudeMeters;
  std::optional<std::int64_t> elevationMaxAltitudeMeters;
  std::optional<std::int64_t> elevationLossActualAltitudeMeters;
  std::optional<std::int64_t> elevationGainActualAltitudeMeters;
  std::optional<std::int64_t> elevationPlannedGainMeters;
  std::optional<std::vector<ElevationGranularDataMeter>> elevationGranularDataMeters;
  std::optional<std::int64_t> swimmingStrokesNumber;
  std::optional<std::int64_t> swimmingNumLapsNumber;
  std::optional<std::int64_t> swimmingPoolLengthMeters;
  std::optional<std::int64_t> swimmingTotalDistanceMeters;
  std::optional<std::vector<SwimmingDistanceGranularDataMeter>> swimmingDistanceGranularDataMeters;

  bool operator==(const DistanceData&) const = default;

  static constexpr auto fields = std::tuple{
      field("steps_per_day_number", &DistanceData::stepsPerDayNumber),
      field("steps_granular_data_steps_per_hr", &DistanceData::stepsGranularDataStepsPerHr),
      field("active_steps_per_day_number", &DistanceData::activeStepsPerDayNumber),
      field("active_steps_granular_data_steps_per_hr",
            &DistanceData::activeStepsGranularDataStepsPerHr),
      field("walked_distance_meters", &DistanceData::walkedDistanceMeters),
      field("traveled_distance_meters", &DistanceData::traveledDistanceMeters),
      field("traveled_distance_granular_data_meters",
            &DistanceData::traveledDistanceGranularDataMeters),
      field("floors_climbed_number", &DistanceData::floorsClimbedNumber),
      field("floors_climbed_granular_data_floors", &DistanceData::floorsClimbedGranularDataFloors),
      field("elevation_avg_altitude_meters", &DistanceData::elevationAvgAltitudeMeters),
      field("elevation_minimum_altitude_meters", &DistanceData::elevationMinimumAltitudeMeters),
      field("elevation_max_altitude_meters", &DistanceData::elevationMaxAltitudeMeters),
      field("elevation_loss_actual_altitude_meters",
            &DistanceData::elevationLossActualAltitudeMeters),
      field("elevation_gain_actual_altitude_meters",
            &DistanceData::elevationGainActualAltitudeMeters),
      field("elevation_planned_gain_meters", &DistanceData::elevationPlannedGainMeters),
      field("elevation_granular_data_meters", &DistanceData::elevationGranularDataMeters),
      field("swimming_strokes_number", &DistanceData::swimmingStrokesNumber),
      field("swimming_num_laps_number", &DistanceData::swimmingNumLapsNumber),
      field("swimming_pool_length_meters", &DistanceData::swimmingPoolLengthMeters),
      field("swimming_total_distance_meters", &DistanceData::swimmingTotalDistanceMeters),
      field("swimming_distance_granular_data_meters",
            &DistanceData::swimmingDistanceGranularDataMeters),
  };
};

/// Note "vo2max_ml_per_min_per_kg" (no underscore in "vo2max") beside the datum key
/// "vo2_ml_per_min_per_kg": both spellings are what backends expect.
struct OxygenationData {
  std::optional<std::int64_t> saturationAvgPercentage;
  std::optional<std::vector<SaturationGranularDataPercentage>> saturationGranularDataPercentage;
  std::optional<std::int64_t> vo2MaxMlPerMinPerKg;
  std::optional<std::vector<Vo2GranularDataLiterPerMin>> vo2GranularDataLiterPerMin;

  bool operator==(const OxygenationData&) const = default;

  static constexpr auto fields = std::tuple{
      field("saturation_avg_percentage", &OxygenationData::saturationAvgPercentage),
      field("saturation_granular_data_percentage",
            &OxygenationData::saturationGranularDataPercentage),
      field("vo2max_ml_per_min_per_kg", &OxygenationData::vo2MaxMlPerMinPerKg),
      field("vo2_granular_data_liter_per_min", &OxygenationData::vo2GranularDataLiterPerMin),
  };
};

struct ActivityData {
  std::optional<std::int64_t> activeSeconds;
  std::optional<std::int64_t> restSeconds;
  std::optional<std::int64_t> lowIntensitySeconds;
  std::optional<std::int64_t> moderateIntensitySeconds;
  std::optional<std::int64_t> vigorousIntensitySeconds;
  std::optional<std::int64_t> inactivitySeconds;
  std::optional<std::vector<ActivityLevelGranularDataNumber>> activityLevelGranularDataNumber;
  std::optional<std::int64_t> continuousInactivePeriodsNumber;

  bool operator==(const ActivityData&) const = default;

  static constexpr auto fields = std::tuple{
      field("active_seconds", &ActivityData::activeSeconds),
      field("rest_seconds", &ActivityData::restSeconds),
      field("low_intensity_seconds", &ActivityData::lowIntensitySeconds),
      field("moderate_intensity_seconds", &ActivityData::moderateIntensitySeconds),
      field("vigorous_intensity_seconds", &ActivityData::vigorousIntensitySeconds),
      field("inactivity_seconds", &ActivityData::inactivitySeconds),
      field("activity_level_granular_data_number", &ActivityData::activityLevelGranularDataNumber),
      field("continuous_inactive_periods_number", &ActivityData::continuousInactivePeriodsNumber),
  };
};

/// All kilocalories.
struct CaloriesData {
  std::optional<std::int64_t> caloriesNetIntakeKilocalories;
  std::optional<std::int64_t> caloriesExpenditureKilocalories;
  std::optional<std::int64_t> caloriesNetActiveKilocalories;
  std::optional<std::int64_t> caloriesBasalMetabolicRateKilocalories;

  bool operator==(const CaloriesData&) const = default;

  static constexpr auto fields = std::tuple{
      field("calories_net_intake_kilocalories", &CaloriesData::caloriesNetIntakeKilocalories),
      field("calories_expenditure_kilocalories", &CaloriesData::caloriesExpenditureKilocalories),
      field("calories_net_active_kilocalories", &CaloriesData::caloriesNetActiveKilocalories),
      field("calories_basal_metabolic_rate_kilocalories",
            &CaloriesData::caloriesBasalMetabolicRateKilocalories),
  };
};

/// Beats per minute, and HRV in ms. The two HRV list keys end in "_number" here, unlike the sleep
/// document's; the two documents keep their own records and keys.
struct HeartRateData {
  std::optional<std::int64_t> hrMaxBPM;
  std::optional<std::int64_t> hrMinimumBPM;
  std::optional<std::int64_t> hrAvgBPM;
  std::optional<std::int64_t> hrRestingBPM;
  std::optional<std::vector<HrGranularDataBPM>> hrGranularDataBPM;
  std::optional<std::int64_t> hrvAvgRmssdNumber;
  std::optional<std::int64_t> hrvAvgSdnnNumber;
  std::optional<std::vector<HrvSdnnGranularDataNumber>> hrvSdnnGranularDataNumber;
  std::optional<std::vector<HrvRmssdGranularDataNumber>> hrvRmssdGranularDataNumber;

  bool operator==(const HeartRateData&) const = default;

  static constexpr auto fields = std::tuple{
      field("hr_max_bpm", &HeartRateData::hrMaxBPM),
      field("hr_minimum_bpm", &HeartRateData::hrMinimumBPM),
      field("hr_avg_bpm", &HeartRateData::hrAvgBPM),
      field("hr_resting_bpm", &HeartRateData::hrRestingBPM),
      field("hr_granular_data_bpm", &HeartRateData::hrGranularDataBPM),
      field("hrv_avg_rmssd_number", &HeartRateData::hrvAvgRmssdNumber),
      field("hrv_avg_sdnn_number", &HeartRateData::hrvAvgSdnnNumber),
      field("hrv_sdnn_granular_data_number", &HeartRateData::hrvSdnnGranularDataNumber),
      field("hrv_rmssd_granular_data_number", &HeartRateData::hrvRmssdGranularDataNumber),
  };
};

struct StressData {
  std::optional<std::int64_t> stressAtRESTDurationSeconds;
  std::optional<std::int64_t> stressDurationSeconds;
  std::optional<std::int64_t> lowStressDurationSeconds;
  std::optional<std::int64_t> mediumStressDurationSeconds;
  std::optional<std::int64_t> highStressDurationSeconds;
  std::optional<std::vector<StressGranularDataScoreNumber>> stressGranularDataScoreNumber;
  std::optional<std::int64_t> stressAvgLevelNumber;
  std::optional<std::int64_t> stressMaxLevelNumber;

  bool operator==(const StressData&) const = default;

  static constexpr auto fields = std::tuple{
      field("stress_at_rest_duration_seconds", &StressData::stressAtRESTDurationSeconds),
      field("stress_duration_seconds", &StressData::stressDurationSeconds),
      field("low_stress_duration_seconds", &StressData::lowStressDurationSeconds),
      field("medium_stress_duration_seconds", &StressData::mediumStressDurationSeconds),
      field("high_stress_duration_seconds", &StressData::highStressDurationSeconds),
      field("stress_granular_data_score_number", &StressData::stressGranularDataScoreNumber),
      field("stress_avg_level_number", &StressData::stressAvgLevelNumber),
      field("stress_max_level_number", &StressData::stressMaxLevelNumber),
  };
};

struct DailyActivityRelatedData {
  VelkPhysicalMetadata metadata;
  DistanceData distanceData;
  OxygenationData oxygenationData;
  ActivityData activityData;
  CaloriesData caloriesData;
  HeartRateData heartRateData;
  StressData stressData;
  /// Left out of the JSON altogether when absent (not written as null).
  std::optional<NonStructuredData> nonStructuredData;

  bool operator==(const DailyActivityRelatedData&) const = default;

  static constexpr auto fields = std::tuple{
      field("metadata", &DailyActivityRelatedData::metadata),
      field("distance_data", &DailyActivityRelatedData::distanceData),
      field("oxygenation_data", &DailyActivityRelatedData::oxygenationData),
      field("activity_data", &DailyActivityRelatedData::activityData),
      field("calories_data", &DailyActivityRelatedData::caloriesData),
      field("heart_rate_data", &DailyActivityRelatedData::heartRateData),
      field("stress_data", &DailyActivityRelatedData::stressData),
      omitWhenAbsent(field("non_structured_data", &DailyActivityRelatedData::nonStructuredData)),
  };
};

struct VelkPhysicalSummaries {
  DailyActivityRelatedData dailyActivityRelatedData;

  bool operator==(const VelkPhysicalSummaries&) const = default;

  static constexpr auto fields = std::tuple{
      field("daily_activity_related_data", &VelkPhysicalSummaries::dailyActivityRelatedData),
  };
};

/// The physical document's root.
struct VelkPhysicalData {
  static constexpr std::string_view kDataStructure = "physical_health";
  static constexpr std::int64_t kVersion = 1;

  std::string dataStructure = std::string(kDataStructure);
  std::int64_t version = kVersion;
  VelkPhysicalSummaries summaries;

  /// The document as a JSON object; an empty object if it cannot be encoded.
  nlohmann::json getDictionary() const;
  /// The document as UTF-8 JSON text; absent if it cannot be encoded.
  std::optional<std::string> getData() const;

  /// Reads a document from its dictionary form; the error names the key path of the problem.
  static Result<VelkPhysicalData> fromDictionary(const nlohmann::json& dictionary);
  /// Reads a document from UTF-8 JSON text.
  static Result<VelkPhysicalData> fromData(std::string_view data);

  bool operator==(const VelkPhysicalData&) const = default;

  static constexpr auto fields = std::tuple{
      field("data_structure", &VelkPhysicalData::dataStructure),
      field("version", &VelkPhysicalData::version),
      field("summaries", &VelkPhysicalData::summaries),
  };
};

}  // namespace velk
