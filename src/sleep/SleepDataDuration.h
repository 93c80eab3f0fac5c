// One night reduced to its start and end and whole-second totals per sleep state.
#pragma once

#include <cstdint>

#include "velk/Date.h"

namespace velk {

struct SleepDataDuration {
  /// Takes second counts as summed and truncates each toward zero. A count that is not finite or
  /// does not fit a signed 64-bit integer is a programming error and stops the process: real
  /// sample lengths cannot produce one, so reaching it means the pipeline is broken.
  SleepDataDuration(Date start, Date end, double duration, double timeInBed,
                    double sleepLightDuration, double sleepRemDuration, double sleepDeepDuration,
                    double sleepFallDuration, double sleepAwakeDuration);

  Date start;
  Date end;
  std::int64_t duration;            ///< all asleep states together
  std::int64_t timeInBed;           ///< in-bed samples
  std::int64_t sleepLightDuration;  ///< core sleep
  std::int64_t sleepRemDuration;
  std::int64_t sleepDeepDuration;
  std::int64_t sleepFallDuration;  ///< time to fall asleep; nothing computes it, always 0
  std::int64_t sleepAwakeDuration;

  friend bool operator==(const SleepDataDuration&, const SleepDataDuration&) = default;
};

}  // namespace velk
