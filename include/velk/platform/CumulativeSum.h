// The one place where the health store adds samples up for a statistics interval.
//
// A sample counts in an interval in proportion to the part of its duration that lies inside the
// interval: a 10-minute walk of 1,000 steps that starts 4 minutes before midnight gives 400 steps
// to the evening and 600 to the next day. A zero-length sample counts wholly in the interval that
// contains its start. Intervals are half open: [start, end).
#pragma once

#include <optional>
#include <span>

#include "velk/platform/Date.h"
#include "velk/platform/InternedString.h"

namespace velk::platform {

/// A sample reduced to what a sum needs, its value already in the sum's unit.
struct SummableSample {
  Date start;
  Date end;
  double value = 0;
  InternedString source;
};

class CumulativeSum {
 public:
  /// The sum over [intervalStart, intervalEnd); absent when no sample touches the interval
  /// (an empty interval has no sum, which is not the same as a sum of 0).
  static std::optional<double> over(std::span<const SummableSample> samples, Date intervalStart,
                                    Date intervalEnd);
};

}  // namespace velk::platform
