// The day's step count, summed by the health store.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "healthstore/AppleHealthProvider.h"
#include "healthstore/VelkPredicateBuilder.h"
#include "velk/Date.h"
#include "velk/Result.h"

namespace velk {

class VelkStepSampleProvider {
 public:
  using Completion = std::function<void(Result<std::int64_t>)>;

  VelkStepSampleProvider();

  /// The steps of the day of `date` (samples overlapping 00:05:59 to 23:59:59, none typed in by
  /// hand), truncated toward zero. Fails with sampleTypeNotAvailable, predicateErrorDate (on the
  /// caller's thread), or with the store's error, collectionHeatlhDataNull or sumQuantityNull (on
  /// the store's queue). The completion is called exactly once.
  void getStepsCount(Date date, Completion completion) const;

  std::shared_ptr<AppleHealthProvider> appleHealthPrivider;
  VelkPredicateBuilder predicateBuilder;
};

}  // namespace velk
