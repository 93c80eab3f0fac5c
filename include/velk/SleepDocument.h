// The sleep summary document: one night's sleep, with room for heart rate, temperature and
// breathing that no extraction fills yet. Those sections are still written, every key with null,
// so that the document has the same shape as sleep documents from other sources.
//
//   VelkSleepData                      "data_structure": "sleep_health", "version": 1
//   └ VelkSleepSummaries               "summaries"
//     └ SleepRelatedData               "sleep_related_data"
//       ├ VelkSleepMetadata            "metadata"
//       ├ SleepDurationRelatedData     "sleep_duration_related_data"
//       ├ SleepScores                  "sleep_scores"
//       ├ SleepHeartRateRelatedData    "sleep_heart_rate_related_data"
//       ├ TemperatureRelatedData       "temperature_related_data"
//       ├ BreathingRelatedData         "breathing_related_data"
//       └ [String]?                    "non_structured_data"
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

namespace velk {

// Granular records: one time point and its value. The heart-rate and saturation records are
// shared with the physical and body documents.

struct HrGranularDataBPM {
  Date datetime;
  std::int64_t bpm = 0;

  bool operator==(const HrGranularDataBPM&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &HrGranularDataBPM::datetime),
      field("bpm", &HrGranularDataBPM::bpm),
  };
};

struct HrvRmssdGranularDatum {
  Date datetime;
  std::int64_t hrvRmssd = 0;  // ms

  bool operator==(const HrvRmssdGranularDatum&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &HrvRmssdGranularDatum::datetime),
      field("hrv_rmssd", &HrvRmssdGranularDatum::hrvRmssd),
  };
};

struct HrvSdnnGranularDatum {
  Date datetime;
  std::int64_t hrvSdnn = 0;  // ms

  bool operator==(const HrvSdnnGranularDatum&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &HrvSdnnGranularDatum::datetime),
      field("hrv_sdnn", &HrvSdnnGranularDatum::hrvSdnn),
  };
};

struct TemperatureGranularDataCelsius {
  Date datetime;
  std::int64_t temperatureCelsius = 0;

  bool operator==(const TemperatureGranularDataCelsius&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &TemperatureGranularDataCelsius::datetime),
      field("temperature_celsius", &TemperatureGranularDataCelsius::temperatureCelsius),
  };
};

struct BreathingGranularDataBreathsPerMin {
  Date datetime;
  std::int64_t breathsPerMin = 0;

  bool operator==(const BreathingGranularDataBreathsPerMin&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &BreathingGranularDataBreathsPerMin::datetime),
      field("breaths_per_min", &BreathingGranularDataBreathsPerMin::breathsPerMin),
  };
};

struct SaturationGranularDataPercentage {
  Date datetime;
  std::int64_t saturationPercentage = 0;

  bool operator==(const SaturationGranularDataPercentage&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &SaturationGranularDataPercentage::datetime),
      field("saturation_percentage", &SaturationGranularDataPercentage::saturationPercentage),
  };
};

/// Snoring over an interval that starts at `datetime`.
struct SnoringGranularDataSnore {
  Date datetime;
  std::int64_t intervalDurationSeconds = 0;
  std::int64_t snoringEventsCountNumber = 0;

  bool operator==(const SnoringGranularDataSnore&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &SnoringGranularDataSnore::datetime),
      field("interval_duration_seconds", &SnoringGranularDataSnore::intervalDurationSeconds),
      field("snoring_events_count_number", &SnoringGranularDataSnore::snoringEventsCountNumber),
  };
};

struct VelkSleepMetadata {
  /// The moment the document is about: the end of the night.
  Date datetime;
  std::optional<std::string> userID;
  std::vector<std::string> sourcesOfData;
  std::vector<UserDemographic> userDemographics;
  std::optional<std::int64_t> sleepHealthScore;

  bool operator==(const VelkSleepMetadata&) const = default;

  static constexpr auto fields = std::tuple{
      field("datetime", &VelkSleepMetadata::datetime),
      field("user_id", &VelkSleepMetadata::userID),
      field("sources_of_data", &VelkSleepMetadata::sourcesOfData),
      field("user_demographics", &VelkSleepMetadata::userDemographics),
      field("sleep_health_score", &VelkSleepMetadata::sleepHealthScore),
  };
};

/// The night itself; every field is required. Durations are whole seconds.
struct SleepDurationRelatedData {
  Date sleepStartDatetime;
  Date sleepEndDatetime;
  Date sleepDate;
  std::int64_t sleepDurationSeconds = 0;
  std::int64_t timeInBedSeconds = 0;
  std::int64_t lightSleepDurationSeconds = 0;
  std::int64_t remSleepDurationSeconds = 0;
  std::int64_t deepSleepDurationSeconds = 0;
  std::int64_t timeToFallAsleepSeconds = 0;
  std::int64_t timeAwakeDuringSleepSeconds = 0;

  bool operator==(const SleepDurationRelatedData&) const = default;

  static constexpr auto fields = std::tuple{
      field("sleep_start_datetime", &SleepDurationRelatedData::sleepStartDatetime),
      field("sleep_end_datetime", &SleepDurationRelatedData::sleepEndDatetime),
      field("sleep_date", &SleepDurationRelatedData::sleepDate),
      field("sleep_duration_seconds", &SleepDurationRelatedData::sleepDurationSeconds),
      field("time_in_bed_seconds", &SleepDurationRelatedData::timeInBedSeconds),
      field("light_sleep_duration_seconds", &SleepDurationRelatedData::lightSleepDurationSeconds),
      field("rem_sleep_duration_seconds", &SleepDurationRelatedData::remSleepDurationSeconds),
      field("deep_sleep_duration_seconds", &SleepDurationRelatedData::deepSleepDurationSeconds),
      field("time_to_fall_asleep_seconds", &SleepDurationRelatedData::timeToFallAsleepSeconds),
      field("time_awake_during_sleep_seconds",
            &SleepDurationRelatedData::timeAwakeDuringSleepSeconds),
  };
};

struct SleepScores {
  std::optional<std::int64_t> sleepQualityRating1_5_Score;
  std::optional<std::int64_t> sleepEfficiency1_100_Score;
  std::optional<std::int64_t> sleepGoalSeconds;
  std::optional<std::int64_t> sleepContinuity1_5_Score;
  std::optional<std::int64_t> sleepContinuity1_5_Rating;

  bool operator==(const SleepScores&) const = default;

  static constexpr auto fields = std::tuple{
      field("sleep_quality_rating_1_5_score", &SleepScores::sleepQualityRating1_5_Score),
      field("sleep_efficiency_1_100_score", &SleepScores::sleepEfficiency1_100_Score),
      field("sleep_goal_seconds", &SleepScores::sleepGoalSeconds),
      field("sleep_continuity_1_5_score", &SleepScores::sleepContinuity1_5_Score),
      field("sleep_continuity_1_5_rating", &SleepScores::sleepContinuity1_5_Rating),
  };
};

/// Heart rate during the night. Note the HRV list keys: "hrv_sdnn_granular_data" here, but
/// "hrv_sdnn_granular_data_number" in the physical document; each document keeps its own.
struct SleepHeartRateRelatedData {
  std::optional<std::int64_t> hrMaxBPM;
  std::optional<std::int64_t> hrMinimumBPM;
  std::optional<std::int64_t> hrAvgBPM;
  std::optional<std::int64_t> hrRestingBPM;
  std::optional<std::int64_t> hrBasalBPM;
  std::optional<std::vector<HrGranularDataBPM>> hrGranularDataBPM;
  std::optional<std::int64_t> hrvAvgRmssdNumber;
  std::optional<std::int64_t> hrvAvgSdnnNumber;
  std::optional<std::vector<HrvSdnnGranularDatum>> hrvSdnnGranularData;
  std::optional<std::vector<HrvRmssdGranularDatum>> hrvRmssdGranularData;

  bool operator==(const SleepHeartRateRelatedData&) const = default;

  static constexpr auto fields = std::tuple{
      field("hr_max_bpm", &SleepHeartRateRelatedData::hrMaxBPM),
      field("hr_minimum_bpm", &SleepHeartRateRelatedData::hrMinimumBPM),
      field("hr_avg_bpm", &SleepHeartRateRelatedData::hrAvgBPM),
      field("hr_resting_bpm", &SleepHeartRateRelatedData::hrRestingBPM),
      field("hr_basal_bpm", &SleepHeartRateRelatedData::hrBasalBPM),
      field("hr_granular_data_bpm", &SleepHeartRateRelatedData::hrGranularDataBPM),
      field("hrv_avg_rmssd_number", &SleepHeartRateRelatedData::hrvAvgRmssdNumber),
      field("hrv_avg_sdnn_number", &SleepHeartRateRelatedData::hrvAvgSdnnNumber),
      field("hrv_sdnn_granular_data", &SleepHeartRateRelatedData::hrvSdnnGranularData),
      field("hrv_rmssd_granular_data", &SleepHeartRateRelatedData::hrvRmssdGranularData),
  };
};

/// Body temperature; also part of the body document, inside "blood_pressure".
struct TemperatureRelatedData {
  std::optional<std::int64_t> temperatureMinimumCelsius;
  std::optional<std::int64_t> temperatureAvgCelsius;
  std::optional<std::int64_t> temperatureMaxCelsius;
  std::optional<std::vector<TemperatureGranularDataCelsius>> temperatureGranularDataCelsius;
  std::optional<std::int64_t> temperatureDeltaCelsius;

  bool operator==(const TemperatureRelatedData&) const = default;

  static constexpr auto fields = std::tuple{
      field("temperature_minimum_celsius", &TemperatureRelatedData::temperatureMinimumCelsius),
      field("temperature_avg_celsius", &TemperatureRelatedData::temperatureAvgCelsius),
      field("temperature_max_celsius", &TemperatureRelatedData::temperatureMaxCelsius),
      field("temperature_granular_data_celsius",
            &TemperatureRelatedData::temperatureGranularDataCelsius),
      field("temperature_delta_celsius", &TemperatureRelatedData::temperatureDeltaCelsius),
  };
};

struct BreathingRelatedData {
  std::optional<std::int64_t> breathsMinimumPerMin;
  std::optional<std::int64_t> breathsAvgPerMin;
  std::optional<std::int64_t> breathsMaxPerMin;
  std::optional<std::vector<BreathingGranularDataBreathsPerMin>> breathingGranularDataBreathsPerMin;
  std::optional<std::int64_t> snoringEventsCountNumber;
  std::optional<std::int64_t> snoringDurationTotalSeconds;
  std::optional<std::vector<SnoringGranularDataSnore>> snoringGranularDataSnores;
  std::optional<std::int64_t> saturationAvgPercentage;
  std::optional<std::vector<SaturationGranularDataPercentage>> saturationGranularDataPercentage;

  bool operator==(const BreathingRelatedData&) const = default;

  static constexpr auto fields = std::tuple{
      field("breaths_minimum_per_min", &BreathingRelatedData::breathsMinimumPerMin),
      field("breaths_avg_per_min", &BreathingRelatedData::breathsAvgPerMin),
      field("breaths_max_per_min", &BreathingRelatedData::breathsMaxPerMin),
      field("breathing_granular_data_breaths_per_min",
            &BreathingRelatedData::breathingGranularDataBreathsPerMin),
      field("snoring_events_count_number", &BreathingRelatedData::snoringEventsCountNumber),
      field("snoring_duration_total_seconds", &BreathingRelatedData::snoringDurationTotalSeconds),
      field("snoring_granular_data_snores", &BreathingRelatedData::snoringGranularDataSnores),
      field("saturation_avg_percentage", &BreathingRelatedData::saturationAvgPercentage),
      field("saturation_granular_data_percentage",
            &BreathingRelatedData::saturationGranularDataPercentage),
  };
};

struct SleepRelatedData {
  VelkSleepMetadata metadata;
  SleepDurationRelatedData sleepDurationRelatedData;
  SleepScores sleepScores;
  SleepHeartRateRelatedData sleepHeartRateRelatedData;
  TemperatureRelatedData temperatureRelatedData;
  BreathingRelatedData breathingRelatedData;
  /// Unlike the other documents' non-structured data, a list of texts; null when absent.
  std::optional<std::vector<std::string>> nonStructuredData;

  bool operator==(const SleepRelatedData&) const = default;

  static constexpr auto fields = std::tuple{
      field("metadata", &SleepRelatedData::metadata),
      field("sleep_duration_related_data", &SleepRelatedData::sleepDurationRelatedData),
      field("sleep_scores", &SleepRelatedData::sleepScores),
      field("sleep_heart_rate_related_data", &SleepRelatedData::sleepHeartRateRelatedData),
      field("temperature_related_data", &SleepRelatedData::temperatureRelatedData),
      field("breathing_related_data", &SleepRelatedData::breathingRelatedData),
      field("non_structured_data", &SleepRelatedData::nonStructuredData),
  };
};

struct VelkSleepSummaries {
  SleepRelatedData sleepRelatedData;

  bool operator==(const VelkSleepSummaries&) const = default;

  static constexpr auto fields = std::tuple{
      field("sleep_related_data", &VelkSleepSummaries::sleepRelatedData),
  };
};

/// The sleep document's root.
struct VelkSleepData {
  static constexpr std::string_view kDataStructure = "sleep_health";
  static constexpr std::int64_t kVersion = 1;

  std::string dataStructure = std::string(kDataStructure);
  std::int64_t version = kVersion;
  VelkSleepSummaries summaries;

  /// The document as a JSON object; an empty object if it cannot be encoded.
  nlohmann::json getDictionary() const;
  /// The document as UTF-8 JSON text; absent if it cannot be encoded.
  std::optional<std::string> getData() const;

  /// Reads a document from its dictionary form; the error names the key path of the problem.
  static Result<VelkSleepData> fromDictionary(const nlohmann::json& dictionary);
  /// Reads a document from UTF-8 JSON text.
  static Result<VelkSleepData> fromData(std::string_view data);

  bool operator==(const VelkSleepData&) const = default;

  static constexpr auto fields = std::tuple{
      field("data_structure", &VelkSleepData::dataStructure),
      field("version", &VelkSleepData::version),
      field("summaries", &VelkSleepData::summaries),
  };
};

}  // namespace velk
