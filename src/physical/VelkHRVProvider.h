// The day's heart-rate variability, averaged.
#pragma once

#include <functional>
#include <memory>

#include "physical/HeartRateRecords.h"
#include "physical/VelkHRVSampleProvider.h"
#include "velk/Date.h"
#include "velk/Result.h"

namespace velk {

/// Hold it in a std::shared_ptr: if it is gone when the samples arrive, nothing is reported.
class VelkHRVProvider : public std::enable_shared_from_this<VelkHRVProvider> {
 public:
  VelkHRVProvider() : hrvSampleProvider(std::make_shared<VelkHRVSampleProvider>()) {}

  /// The day's SDNN samples and their average, unrounded. No samples: emptySamples. Store errors
  /// pass on unchanged.
  void getHRV(Date date, std::function<void(Result<VelkHRVData>)> completion);

  std::shared_ptr<VelkHRVSampleProvider> hrvSampleProvider;
};

}  // namespace velk
