// Day windows for the sleep and physical reads, in the device's current calendar and time zone.
//
//   sleep reads       getPredicate(date, 12, 0, 0, 24.0)     previous day 12:00:00 .. day 12:00:00
//   physical reads    getPredicate(date, 23, 59, 59, 23.9)   day 00:05:59 .. day 23:59:59
//
// The start is the end minus exactly hoursBack hours, whatever the clocks do that day; samples
// overlapping the window match, and samples the user typed in by hand never do.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/NSPredicate.h"
#include "velk/Date.h"

namespace velk {

class VelkPredicateBuilder {
 public:
  /// The calendar day of `date` at hour:minute:second; absent when the calendar cannot make it.
  std::optional<Date> getDate(Date date, std::int64_t hour, std::int64_t minute,
                              std::int64_t second) const;

  /// Samples overlapping [end - hoursBack h, end), where end is getDate(date, hour, minute,
  /// second) or, if the calendar cannot make it, `date` itself; hand-entered samples excluded.
  std::optional<platform::NSPredicate> getPredicate(Date date, std::int64_t hour,
                                                    std::int64_t minute, std::int64_t second,
                                                    double hoursBack) const;
};

}  // namespace velk
