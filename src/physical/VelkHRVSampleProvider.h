// The day's heart-rate-variability (SDNN) samples, in milliseconds.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "healthstore/AppleHealthProvider.h"
#include "healthstore/VelkPredicateBuilder.h"
#include "physical/HeartRateRecords.h"
#include "velk/Date.h"
#include "velk/Result.h"

namespace velk {

/// Hold it in a std::shared_ptr. Unlike the heart-rate sample provider, an answer that arrives
/// after it is gone still completes, with an empty list.
class VelkHRVSampleProvider : public std::enable_shared_from_this<VelkHRVSampleProvider> {
 public:
  using Completion = std::function<void(Result<std::vector<VelkHRVSample>>)>;

  VelkHRVSampleProvider();

  /// The SDNN samples overlapping 00:05:59 to 23:59:59 of the day of `date`, none typed in by
  /// hand, newest first; entries that are not quantity samples are skipped. Fails with
  /// sampleTypeNotAvailable or predicateErrorDate (on the caller's thread) or the store's error.
  void getHRVSamples(Date date, Completion completion);

  std::shared_ptr<AppleHealthProvider> appleHealthProvider;
  VelkPredicateBuilder predicateBuilder;
};

}  // namespace velk
