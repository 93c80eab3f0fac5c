// INSTANT arguments of the tool: how a user names a moment on the command line (the forms of
// ingest::parseInstant, which the language bindings read too).
//
//   2024-03-10T08:30:00+01:00, 2024-03-10T07:30:00.250Z   an ISO 8601 moment with offset or Z
//   2024-03-10 08:30:00 +0100                             a date as exports write it
//   2024-03-10T08:30, 2024-03-10 08:30:00                 a local date-time, in the device zone
//   2024-03-10                                            a bare date: local midnight
#pragma once

#include <string>

#include "velk/Calendar.h"
#include "velk/DayTable.h"
#include "velk/DeviceOptions.h"
#include "velk/Result.h"

namespace velk::cli {

using ingest::parseInstant;

/// The accepted forms, for messages: "2024-03-10, 2024-03-10T08:30, ...".
extern const char* const kInstantForms;

/// The moment `text` names, or an input error that names `option` and says what is wrong: a day
/// that the calendar does not have ("2020-02-30"), or a text in none of the forms (listed).
Result<Date> readInstant(const std::string& option, const std::string& text,
                         const platform::Calendar& calendar);

/// The days from the day of `from` to the day of `to` (INSTANTs), each asked at `at` (HH:MM local
/// time). Fails with an input error that names the option at fault.
Result<table::DayRange> parseDayRange(const std::string& from, const std::string& to,
                                      const std::string& at, const platform::Calendar& calendar);

}  // namespace velk::cli
