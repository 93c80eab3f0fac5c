// The day's heart-rate or resting-heart-rate samples, in beats per minute.
#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "healthstore/AppleHealthProvider.h"
#include "healthstore/VelkPredicateBuilder.h"
#include "physical/HeartRateRecords.h"
#include "velk/Date.h"
#include "velk/Result.h"

namespace velk {

/// Hold it in a std::shared_ptr: the store's answer reaches it through a weak reference, and an
/// answer that arrives after it is gone is dropped (no completion is called).
class VelkHearRateSampleProvider : public std::enable_shared_from_this<VelkHearRateSampleProvider> {
 public:
  using Completion = std::function<void(Result<std::vector<VelkHeartRateSample>>)>;

  VelkHearRateSampleProvider();

  /// The samples of the quantity type `identifier` that overlap 00:05:59 to 23:59:59 of the day of
  /// `date`, none typed in by hand, newest first. A list that is not wholly quantity samples, or
  /// no list at all, is an empty list. Fails with sampleTypeNotAvailable or predicateErrorDate (on
  /// the caller's thread) or the store's error, unchanged.
  void getHeartRateSamples(Date date, std::string_view identifier, Completion completion);

  std::shared_ptr<AppleHealthProvider> appleHelathKitProvider;
  VelkPredicateBuilder predicateBuilder;
};

}  // namespace velk
