// INSTANT arguments of the tool: how a user names a moment on the command line (the forms of
// ingest::parseInstant, which the language bindings read too).
#pragma once

#include <string>

#include "velk/Calendar.h"
#include "velk/DayTable.h"
#include "velk/DeviceOptions.h"
#include "velk/Result.h"

namespace velk::cli {

using ingest::parseInstant;

/// The days from the day of `from` to the day of `to` (INSTANTs), each asked at `at` (HH:MM local
/// time). Fails with an input error that names the option at fault.
Result<table::DayRange> parseDayRange(const std::string& from, const std::string& to,
                                      const std::string& at, const platform::Calendar& calendar);

}  // namespace velk::cli
