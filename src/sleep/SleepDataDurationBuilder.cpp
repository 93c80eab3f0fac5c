#include "sleep/SleepDataDurationBuilder.h"

#include <algorithm>

#include "velk/Device.h"

namespace velk {

SleepDataDuration SleepDataDurationBuilder::buildSleepDataDuration(
    const std::vector<SleepAnalysis>& analyses) const {
  // A stable sort, so that records with equal starts keep the store's newest-first order; that
  // order decides which of them is "last" and so sets the night's end.
  std::vector<SleepAnalysis> sorted = analyses;
  std::stable_sort(
      sorted.begin(), sorted.end(),
      [](const SleepAnalysis& a, const SleepAnalysis& b) { return a.startDate < b.startDate; });

  // "Now" is read separately for start and end, as for any two reads of a running clock; the test
  // device fixes the clock, so the empty night is reproducible.
  const Date start = sorted.empty() ? platform::Device::current()->now() : sorted.front().startDate;
  const Date end = sorted.empty() ? platform::Device::current()->now() : sorted.back().endDate;

  double asleep = 0, inBed = 0, awake = 0, rem = 0, core = 0, deep = 0;
  for (const SleepAnalysis& analysis : sorted) {
    const double seconds = analysis.durationSeconds;
    switch (analysis.eventSleep) {
      case SleepEvent::aSleep:
        asleep += seconds;
        break;
      case SleepEvent::inBed:
        inBed += seconds;
        break;
      case SleepEvent::aWake:
        awake += seconds;
        break;
      case SleepEvent::asleepREM:
        asleep += seconds;
        rem += seconds;
        break;
      case SleepEvent::asleepCore:
        asleep += seconds;
        core += seconds;
        break;
      case SleepEvent::asleepDeep:
        asleep += seconds;
        deep += seconds;
        break;
    }
  }
  // Truncation happens only now, after summing: 1800.6 s + 1800.6 s is 3601 s, not 3600 s.
  return SleepDataDuration(start, end, asleep, inBed, core, rem, deep, /*sleepFallDuration=*/0.0,
                           awake);
}

}  // namespace velk
