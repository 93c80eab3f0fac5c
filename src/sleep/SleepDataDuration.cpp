#include "velk/sleep/SleepDataDuration.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace velk {

namespace {

// The bounds of the conversion: every double strictly between them truncates into an int64.
// -2^63 - 2048 is the next double below -2^63, so -2^63 itself still converts.
constexpr double kBelowInt64Min = -9223372036854777856.0;
constexpr double kAboveInt64Max = 9223372036854775808.0;

std::int64_t truncatedSeconds(double seconds, const char* name) {
  if (!std::isfinite(seconds) || !(seconds > kBelowInt64Min) || !(seconds < kAboveInt64Max)) {
    std::fprintf(stderr, "velk: sleep total %s (%g s) cannot be a whole number of seconds\n", name,
                 seconds);
    std::abort();
  }
  return static_cast<std::int64_t>(seconds);
}

}  // namespace

SleepDataDuration::SleepDataDuration(Date startDate, Date endDate, double durationSeconds,
                                     double timeInBedSeconds, double lightSeconds,
                                     double remSeconds, double deepSeconds, double fallSeconds,
                                     double awakeSeconds)
    : start(startDate),
      end(endDate),
      duration(truncatedSeconds(durationSeconds, "duration")),
      timeInBed(truncatedSeconds(timeInBedSeconds, "timeInBed")),
      sleepLightDuration(truncatedSeconds(lightSeconds, "sleepLightDuration")),
      sleepRemDuration(truncatedSeconds(remSeconds, "sleepRemDuration")),
      sleepDeepDuration(truncatedSeconds(deepSeconds, "sleepDeepDuration")),
      sleepFallDuration(truncatedSeconds(fallSeconds, "sleepFallDuration")),
      sleepAwakeDuration(truncatedSeconds(awakeSeconds, "sleepAwakeDuration")) {}

}  // namespace velk
