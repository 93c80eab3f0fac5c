// The day's heart rate and resting heart rate, reduced to the numbers the summary carries.
#pragma once

#include <functional>
#include <memory>

#include "physical/HeartRateRecords.h"
#include "physical/VelkHearRateSampleProvider.h"
#include "velk/Date.h"
#include "velk/Result.h"

namespace velk {

/// Hold it in a std::shared_ptr: if it is gone when the samples arrive, nothing is reported.
class VelkHeartRateProvider : public std::enable_shared_from_this<VelkHeartRateProvider> {
 public:
  VelkHeartRateProvider() : velkHrSampleProvider(std::make_shared<VelkHearRateSampleProvider>()) {}

  /// Maximum, minimum and average of the day's heart rate, each truncated toward zero. The
  /// maximum starts from 0 and the minimum from 1000, so a day of samples all above 1000 reports
  /// 1000 as its minimum. No samples: emptySamples. Store errors pass on unchanged.
  void getHeartRate(Date date, std::function<void(Result<VelkHeartRateData>)> completion);

  /// The average resting heart rate of the day, truncated toward zero. No samples: emptySamples.
  void getRestingHeartRate(Date date, std::function<void(Result<VelkRestingHrData>)> completion);

  std::shared_ptr<VelkHearRateSampleProvider> velkHrSampleProvider;
};

}  // namespace velk
