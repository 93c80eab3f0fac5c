#include "sleep/SleepEvent.h"

#include <array>
#include <utility>

namespace velk {

namespace {

constexpr std::array<std::pair<SleepEvent, std::string_view>, 6> kRawValues{{
    {SleepEvent::aSleep, "aSleep"},
    {SleepEvent::inBed, "inBed"},
    {SleepEvent::aWake, "aWake"},
    {SleepEvent::asleepREM, "asleepREM"},
    {SleepEvent::asleepCore, "asleepCore"},
    {SleepEvent::asleepDeep, "asleepDeep"},
}};

}  // namespace

std::string_view rawValue(SleepEvent event) {
  for (const auto& [candidate, text] : kRawValues) {
    if (candidate == event) {
      return text;
    }
  }
  return {};
}

std::optional<SleepEvent> sleepEventFromRawValue(std::string_view text) {
  for (const auto& [event, candidate] : kRawValues) {
    if (candidate == text) {
      return event;
    }
  }
  return std::nullopt;
}

}  // namespace velk
