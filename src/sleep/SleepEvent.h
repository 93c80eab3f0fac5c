// The sleep states that the sleep pipeline distinguishes. The spellings of the raw values, odd
// capitals included, are published: hosts and stored data compare them as text.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace velk {

/// One sleep state. The order of the cases is their index; it is not the health store's order of
/// sleep-analysis values (SleepAnalysisBuilder translates between the two).
enum class SleepEvent : std::uint8_t {
  aSleep,      // "aSleep": asleep, stage not known
  inBed,       // "inBed"
  aWake,       // "aWake"
  asleepREM,   // "asleepREM"
  asleepCore,  // "asleepCore"
  asleepDeep,  // "asleepDeep"
};

/// The raw value of `event`, e.g. "asleepREM".
std::string_view rawValue(SleepEvent event);

/// The case whose raw value is exactly `text`; absent for every other text.
std::optional<SleepEvent> sleepEventFromRawValue(std::string_view text);

}  // namespace velk
