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
// A space between date and time, as exports write it, is read as the 'T'.
constexpr std::array kOffsetPatterns{
    "yyyy-MM-dd'T'HH:mm:ss.SSSXXX", "yyyy-MM-dd'T'HH:mm:ss.SSXXX", "yyyy-MM-dd'T'HH:mm:ss.SXXX",
    "yyyy-MM-dd'T'HH:mm:ssXXX",     "yyyy-MM-dd'T'HH:mmXXX",       "yyyy-MM-dd'T'HH:mm:ss xx",
};
constexpr std::array kLocalPatterns{
    "yyyy-MM-dd'T'HH:mm:ss.SSS", "yyyy-MM-dd'T'HH:mm:ss.SS", "yyyy-MM-dd'T'HH:mm:ss.S",
    "yyyy-MM-dd'T'HH:mm:ss",     "yyyy-MM-dd'T'HH:mm",       "yyyy-MM-dd",
};

// `text` with a space after its date read as the 'T' of ISO 8601.
std::string withDateTimeSeparator(std::string text) {
  if (text.size() > 10 && text[10] == ' ') {
    text[10] = 'T';
  }
  return text;
}

}  // namespace

const char* const kInstantForms =
    "2024-03-10, 2024-03-10T08:30, 2024-03-10 08:30:00, 2024-03-10T08:30:00+01:00 or "
    "2024-03-10 08:30:00 +0100";

std::optional<Date> parseInstant(const std::string& typed, const platform::Calendar& calendar) {
  const std::string text = withDateTimeSeparator(typed);
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

Result<Date> readInstant(const std::string& option, const std::string& text,
                         const platform::Calendar& calendar) {
  if (const auto moment = parseInstant(text, calendar)) {
    return Result<Date>::success(*moment);
  }
  // A text that reads once its day is the 1st names a day the month does not have.
  if (text.size() >= 10 && text[4] == '-' && text[7] == '-') {
    std::string firstOfMonth = text;
    firstOfMonth.replace(8, 2, "01");
    if (parseInstant(firstOfMonth, calendar)) {
      return Result<Date>::failure(inputError(option + ": \"" + text + "\": there is no day " +
                                              text.substr(0, 10) + " in the calendar"));
    }
  }
  return Result<Date>::failure(
      inputError(option + ": \"" + text + "\" is not an INSTANT (give " + kInstantForms + ")"));
}

Result<table::DayRange> parseDayRange(const std::string& from, const std::string& to,
                                      const std::string& at, const platform::Calendar& calendar) {
  using Range = Result<table::DayRange>;
  const auto first = readInstant("--from", from, calendar);
  if (first.isFailure()) {
    return Range::failure(first.error());
  }
  const auto last = readInstant("--to", to, calendar);
  if (last.isFailure()) {
    return Range::failure(last.error());
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
  return Range::success(table::DayRange{first.value(), last.value(), hour, minute});
}

}  // namespace velk::cli
