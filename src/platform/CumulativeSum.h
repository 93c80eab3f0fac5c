// The one place where the health store adds samples up for a statistics interval.
//
// A sample counts in an interval in proportion to the part of its duration that lies inside the
// interval: a 10-minute walk of 1,000 steps that starts 4 minutes before midnight gives 400 steps
// to the evening and 600 to the next day. A zero-length sample counts wholly in the interval that
// contains its start. Intervals are half open: [start, end).
//
// Sources that overlap are merged, not added. Inside the interval, time is cut into slices at
// every start and end of a sample; in each slice only the most trusted source with a sample there
// (SourcePriority) counts, with the share of its samples that falls in that slice. So the steps
// that a phone and a watch both counted count once, as in the platform's own day totals. One
// source's samples are never merged with each other: alone, a source's total is its plain sum.
// A zero-length sample is dropped when a more trusted source has a sample over its instant.
#pragma once

#include <optional>
#include <span>

#include "platform/InternedString.h"
#include "platform/SourcePriority.h"
#include "velk/Date.h"

namespace velk::platform {

/// A sample reduced to what a sum needs, its value already in the sum's unit.
struct SummableSample {
  Date start;
  Date end;
  double value = 0;
  InternedString source;
  bool userEntered = false;

  SampleOrigin origin() const { return {source, userEntered}; }
};

class CumulativeSum {
 public:
  /// The sum over [intervalStart, intervalEnd); absent when no sample touches the interval
  /// (an empty interval has no sum, which is not the same as a sum of 0).
  static std::optional<double> over(std::span<const SummableSample> samples, Date intervalStart,
                                    Date intervalEnd, const SourcePriority& priority = {});
};

}  // namespace velk::platform
