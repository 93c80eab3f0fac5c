// Fetches the sleep-analysis samples of one night: from noon of the previous day to noon of the
// requested day, in the device's current calendar, without samples the user typed in by hand.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "healthstore/AppleHealthProvider.h"
#include "healthstore/VelkPredicateBuilder.h"
#include "platform/HKSample.h"
#include "velk/Date.h"
#include "velk/Result.h"

namespace velk {

class SleepSampleProvider {
 public:
  using Samples = std::vector<std::shared_ptr<const platform::HKCategorySample>>;
  /// Success with the samples, newest start first, or with no list when the store gave none or
  /// gave samples that are not all category samples; failure with an error.
  using Completion = std::function<void(Result<std::optional<Samples>>)>;

  /// Builds its own store access and predicate builder.
  SleepSampleProvider();
  virtual ~SleepSampleProvider() = default;
  SleepSampleProvider(const SleepSampleProvider&) = delete;
  SleepSampleProvider& operator=(const SleepSampleProvider&) = delete;

  /// The night that ends on the calendar day of `date`, whatever its time of day. Fails at once, on
  /// the caller's thread, with sampleTypeNotAvailable or predicateErrorDate; otherwise completes on
  /// the store's callback queue with the store's answer (a store error passes through unchanged).
  /// The completion does not refer to the provider, so the provider may go away in the meantime.
  virtual void getSleepSamples(Date date, Completion completion);

 private:
  std::unique_ptr<AppleHealthProvider> appleHealthPrivider;
  std::unique_ptr<VelkPredicateBuilder> predicateBuilder;
};

}  // namespace velk
