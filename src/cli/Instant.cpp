#include "cli/Instant.h"

#include <array>
#include <charconv>

#include "cli/ToolDevice.h"

#include "platform/DateFormatter.h"

namespace velk::cli {
namespace {

// The forms are tried in turn; each must match the whole text. Forms with an offset name their
// moment themselves; local forms are read as wall time, first in UTC to take their fields apart,
// then put together again in the device's zone by the calendar (which also settles DST gaps).
constexpr std::array kOffsetPatterns{
    "yyyy-MM-dd'T'HH:mm:ss.SSSXXX", "yyyy-MM-dd'T'HH:mm:ss.SSXXX", "yyyy-MM-dd'T'HH:mm:ss.SXXX",
    "yyyy-MM-dd'T'HH:mm:ssXXX",     "yyyy-MM-dd'T'HH:mmXXX",
};
constexpr std::array kLocalPatterns{
    "yyyy-MM-dd'T'HH:mm:ss.SSS", "yyyy-MM-dd'T'HH:mm:ss.SS", "yyyy-MM-dd'T'HH:mm:ss.S",
    "yyyy-MM-dd'T'HH:mm:ss",     "yyyy-MM-dd'T'HH:mm",       "yyyy-MM-dd",
};

}  // namespace

std::optional<Date> parseInstant(const std::string& text, const platform::Calendar& calendar) {
  for (const char* pattern : kOffsetPatterns) {
    if (auto moment = platform::DateFormatter(pattern, "UTC", "en_US_POSIX").date(text)) {
      return moment;
    }
  }
  const platform::Calendar utc("UTC");
  for (const char* pattern : kLocalPatterns) {
    if (auto wallTime = platform::DateFormatter(pattern, "UTC", "en_US_POSIX").date(text)) {
      return calendar.date(utc.components(*wallTime));
    }
  }
  return std::nullopt;
}

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
