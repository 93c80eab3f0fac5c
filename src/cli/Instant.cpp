#include "cli/Instant.h"

#include <charconv>

#include "cli/ToolDevice.h"

namespace velk::cli {

Result<table::DayRange> parseDayRange(const std::string& from, const std::string& to,
                                      const std::string& at, const platform::Calendar& calendar) {
  using Range = Result<table::DayRange>;
  const auto first = parseInstant(from, calendar);
  const auto last = parseInstant(to, calendar);
  if (!first) {
    return Range::failure(inputError("--from: \"" + from + "\" is not a date"));
  }
  if (!last) {
    return Range::failure(inputError("--to: \"" + to + "\" is not a date"));
  }
  int hour = -1;
  int minute = -1;
  const char* end = at.data() + at.size();
  auto [afterHour, hourProblem] = std::from_chars(at.data(), end, hour);
  if (hourProblem == std::errc() && afterHour != end && *afterHour == ':') {
    auto [afterMinute, minuteProblem] = std::from_chars(afterHour + 1, end, minute);
    if (minuteProblem != std::errc() || afterMinute != end) {
      minute = -1;
    }
  }
  if (hour < 0 || hour > 23 || minute < 0 || minute > 59) {
    return Range::failure(inputError("--at: \"" + at + "\" is not a time of day HH:MM"));
  }
  return Range::success(table::DayRange{*first, *last, hour, minute});
}

}  // namespace velk::cli
