#include "cli/Instant.h"

#include <charconv>

#include "cli/ToolDevice.h"

namespace velk::cli {

const char* const kInstantForms =
    "2024-03-10, 2024-03-10T08:30, 2024-03-10 08:30:00, 2024-03-10T08:30:00+01:00 or "
    "2024-03-10 08:30:00 +0100";

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
