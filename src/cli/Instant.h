// INSTANT arguments of the tool: how a user names a moment on the command line.
//
//   2024-03-10T08:30:00+01:00, 2024-03-10T07:30:00.250Z   an ISO 8601 moment with offset or Z
//   2024-03-10T08:30, 2024-03-10T08:30:00                 a local date-time, in the device zone
//   2024-03-10                                            a bare date: local midnight
#pragma once

#include <optional>
#include <string>

#include "velk/Calendar.h"
#include "velk/Date.h"
#include "velk/DayTable.h"
#include "velk/Result.h"

namespace velk::cli {

/// The moment `text` names, local forms read in `calendar`'s zone; absent when `text` is not an
/// INSTANT.
std::optional<Date> parseInstant(const std::string& text, const platform::Calendar& calendar);

/// The days from the day of `from` to the day of `to` (INSTANTs), each asked at `at` (HH:MM local
/// time). Fails with an input error that names the option at fault.
Result<table::DayRange> parseDayRange(const std::string& from, const std::string& to,
                                      const std::string& at, const platform::Calendar& calendar);

}  // namespace velk::cli
