// The health-store type identifiers that the physical reads ask for.
#pragma once

#include <string_view>

namespace velk::physical_detail {

inline constexpr std::string_view kStepCount = "HKQuantityTypeIdentifierStepCount";
inline constexpr std::string_view kActiveEnergyBurned =
    "HKQuantityTypeIdentifierActiveEnergyBurned";
inline constexpr std::string_view kBasalEnergyBurned = "HKQuantityTypeIdentifierBasalEnergyBurned";
inline constexpr std::string_view kHeartRate = "HKQuantityTypeIdentifierHeartRate";
inline constexpr std::string_view kRestingHeartRate = "HKQuantityTypeIdentifierRestingHeartRate";
inline constexpr std::string_view kHeartRateVariabilitySDNN =
    "HKQuantityTypeIdentifierHeartRateVariabilitySDNN";

// Every physical read covers 23.9 hours up to 23:59:59 of the day: from 00:05:59 on. The first five
// minutes and 59 seconds are outside on purpose; published results depend on it.
inline constexpr int kWindowEndHour = 23;
inline constexpr int kWindowEndMinute = 59;
inline constexpr int kWindowEndSecond = 59;
inline constexpr double kWindowHoursBack = 23.9;

}  // namespace velk::physical_detail
