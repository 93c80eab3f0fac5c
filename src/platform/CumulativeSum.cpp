#include "velk/platform/CumulativeSum.h"

#include <algorithm>

namespace velk::platform {

std::optional<double> CumulativeSum::over(std::span<const SummableSample> samples,
                                          Date intervalStart, Date intervalEnd) {
  std::optional<double> sum;
  for (const SummableSample& sample : samples) {
    const double duration = sample.end.timeIntervalSince(sample.start);
    if (duration <= 0) {
      if (sample.start >= intervalStart && sample.start < intervalEnd) {
        sum = sum.value_or(0.0) + sample.value;
      }
      continue;
    }
    const Date from = std::max(sample.start, intervalStart);
    const Date to = std::min(sample.end, intervalEnd);
    const double inside = to.timeIntervalSince(from);
    if (inside <= 0) {
      continue;
    }
    sum = sum.value_or(0.0) + sample.value * (inside / duration);
  }
  return sum;
}

}  // namespace velk::platform
