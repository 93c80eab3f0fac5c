// Reads the user's newest body mass samples up to a moment, in kilograms.
//
// Hold it in a std::shared_ptr: the store's answer holds the reader weakly, and a reader that has
// gone when the answer comes calls nothing (an outstanding read does not keep it alive).
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "body/VelkBodySamples.h"
#include "healthstore/AppleHealthProvider.h"
#include "velk/Date.h"
#include "velk/Result.h"

namespace velk {

class VelkWeightProvider : public std::enable_shared_from_this<VelkWeightProvider> {
 public:
  using Completion = std::function<void(Result<std::vector<VelkWeightSample>>)>;

  VelkWeightProvider() = default;

  /// The ten newest samples that start before `date` (hand-entered ones included), newest first,
  /// values in kilograms unrounded; an empty list when there are none. Fails with the store's
  /// error, or with sampleTypeNotAvailable (at once, on the caller's thread) when the store does
  /// not know the type. Otherwise completes on the store's queue.
  void getWeight(Date date, Completion completion) const;

 private:
  AppleHealthProvider appleHealthProvider;
};

}  // namespace velk
