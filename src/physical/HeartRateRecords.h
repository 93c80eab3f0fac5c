// The plain values that the heart-rate and heart-rate-variability reads hand on: single samples
// and the day's reductions of them.
#pragma once

#include <cstdint>
#include <vector>

#include "velk/Date.h"

namespace velk {

/// One heart-rate or resting-heart-rate sample, in beats per minute.
struct VelkHeartRateSample {
  double value = 0;
  Date startDate;
  Date endDate;

  friend bool operator==(const VelkHeartRateSample&, const VelkHeartRateSample&) = default;
};

/// One heart-rate-variability (SDNN) sample, in milliseconds.
struct VelkHRVSample {
  double value = 0;
  Date startDate;
  Date endDate;

  friend bool operator==(const VelkHRVSample&, const VelkHRVSample&) = default;
};

/// The day's heart rate. Maximum and minimum start from 0 and 1000 beats per minute, so a day
/// whose samples all lie above 1000 reports 1000 as its minimum (see VelkHeartRateProvider).
struct VelkHeartRateData {
  std::int64_t maxHeartRate = 0;
  std::int64_t minHeartRate = 0;
  std::int64_t avgHeartRate = 0;
  std::vector<VelkHeartRateSample> granular;  ///< as the store returned them, newest first

  friend bool operator==(const VelkHeartRateData&, const VelkHeartRateData&) = default;
};

/// The day's resting heart rate.
struct VelkRestingHrData {
  std::int64_t avgValue = 0;
  std::vector<VelkHeartRateSample> granular;  ///< as the store returned them, newest first

  friend bool operator==(const VelkRestingHrData&, const VelkRestingHrData&) = default;
};

/// The day's heart-rate variability. The average stays unrounded here; the document truncates
/// it when it is built.
struct VelkHRVData {
  std::vector<VelkHRVSample> granular;  ///< as the store returned them, newest first
  double avgValue = 0;

  friend bool operator==(const VelkHRVData&, const VelkHRVData&) = default;
};

}  // namespace velk
