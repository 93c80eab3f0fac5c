// One accepted sleep sample, as the rest of the sleep pipeline sees it.
#pragma once

#include "sleep/SleepEvent.h"
#include "velk/Date.h"

namespace velk {

struct SleepAnalysis {
  Date startDate;
  Date endDate;
  SleepEvent eventSleep = SleepEvent::aSleep;
  /// |endDate - startDate| in seconds; never negative, also when a sample ends before it starts.
  double durationSeconds = 0;

  friend bool operator==(const SleepAnalysis&, const SleepAnalysis&) = default;
};

}  // namespace velk
