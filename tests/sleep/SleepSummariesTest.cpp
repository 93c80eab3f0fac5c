#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/TestDevice.h"
#include "velk/sleep/SleepSummaries.h"

namespace velk {
namespace {

// The whole document of one night, as a host receives it: every section with every key, absent
// values as null, dates as seconds since 2001-01-01T00:00:00Z.
TEST(SleepSummariesTest, ANightFillsTheDurationsAndMetadataAndLeavesEveryOtherValueNull) {
  testing::TestDevice device;
  const SleepDataDuration night(Date::fromReferenceSeconds(731800000),
                                Date::fromReferenceSeconds(731828800.5), 25200.9, 28800, 14400,
                                5400, 3600, 0, 900);
  VelkSleepData document;
  document.summaries = makeSleepSummaries(night, VelkDateFormatter());

  const nlohmann::json nullDemographic = {{"sex", nullptr},           {"gender", nullptr},
                                          {"date_of_birth", nullptr}, {"age", nullptr},
                                          {"country", nullptr},       {"state", nullptr},
                                          {"city", nullptr},          {"ethnicity", nullptr},
                                          {"income", nullptr},        {"marital_status", nullptr},
                                          {"education", nullptr}};
  const nlohmann::json expected = {{"data_structure", "sleep_health"},
                                   {"version", 1},
                                   {"summaries",
                                    {{"sleep_related_data",
                                      {{"metadata",
                                        {{"datetime", 731828800.5},
                                         {"user_id", nullptr},
                                         {"sources_of_data", {"Apple Health"}},
                                         {"user_demographics", {nullDemographic}},
                                         {"sleep_health_score", nullptr}}},
                                       {"sleep_duration_related_data",
                                        {{"sleep_start_datetime", 731800000},
                                         {"sleep_end_datetime", 731828800.5},
                                         {"sleep_date", 731828800.5},
                                         {"sleep_duration_seconds", 25200},
                                         {"time_in_bed_seconds", 28800},
                                         {"light_sleep_duration_seconds", 14400},
                                         {"rem_sleep_duration_seconds", 5400},
                                         {"deep_sleep_duration_seconds", 3600},
                                         {"time_to_fall_asleep_seconds", 0},
                                         {"time_awake_during_sleep_seconds", 900}}},
                                       {"sleep_scores",
                                        {{"sleep_quality_rating_1_5_score", nullptr},
                                         {"sleep_efficiency_1_100_score", nullptr},
                                         {"sleep_goal_seconds", nullptr},
                                         {"sleep_continuity_1_5_score", nullptr},
                                         {"sleep_continuity_1_5_rating", nullptr}}},
                                       {"sleep_heart_rate_related_data",
                                        {{"hr_max_bpm", nullptr},
                                         {"hr_minimum_bpm", nullptr},
                                         {"hr_avg_bpm", nullptr},
                                         {"hr_resting_bpm", nullptr},
                                         {"hr_basal_bpm", nullptr},
                                         {"hr_granular_data_bpm", nullptr},
                                         {"hrv_avg_rmssd_number", nullptr},
                                         {"hrv_avg_sdnn_number", nullptr},
                                         {"hrv_sdnn_granular_data", nullptr},
                                         {"hrv_rmssd_granular_data", nullptr}}},
                                       {"temperature_related_data",
                                        {{"temperature_minimum_celsius", nullptr},
                                         {"temperature_avg_celsius", nullptr},
                                         {"temperature_max_celsius", nullptr},
                                         {"temperature_granular_data_celsius", nullptr},
                                         {"temperature_delta_celsius", nullptr}}},
                                       {"breathing_related_data",
                                        {{"breaths_minimum_per_min", nullptr},
                                         {"breaths_avg_per_min", nullptr},
                                         {"breaths_max_per_min", nullptr},
                                         {"breathing_granular_data_breaths_per_min", nullptr},
                                         {"snoring_events_count_number", nullptr},
                                         {"snoring_duration_total_seconds", nullptr},
                                         {"snoring_granular_data_snores", nullptr},
                                         {"saturation_avg_percentage", nullptr},
                                         {"saturation_granular_data_percentage", nullptr}}},
                                       {"non_structured_data", nullptr}}}}}};
  EXPECT_EQ(document.getDictionary(), expected) << document.getDictionary().dump(2);
}

}  // namespace
}  // namespace velk
