// Adds one night's sleep analyses up into a SleepDataDuration: the only place where stage totals
// are decided.
#pragma once

#include <vector>

#include "sleep/SleepAnalysis.h"
#include "sleep/SleepDataDuration.h"

namespace velk {

class SleepDataDurationBuilder {
 public:
  virtual ~SleepDataDurationBuilder() = default;

  /// Totals are plain sums of sample lengths: overlapping samples count as often as they occur and
  /// gaps count for nothing. The night runs from the earliest start to the end of the record that
  /// starts last (not to the latest end). With no records, start and end are the device's "now".
  virtual SleepDataDuration buildSleepDataDuration(
      const std::vector<SleepAnalysis>& analyses) const;
};

}  // namespace velk
