// The date forms written in health exports. Every sample date carries its own UTC offset, so a
// date is read without any calendar or time zone of the machine that reads it:
//
//   "2024-03-10 08:30:00 +0100"   the form of every export since 2016
//   "20151107171924+0100"         the compact form of the first exports
//
// A "T" in place of the space, "Z" for UTC and offsets written "+01:00" are accepted too, since
// tools that re-save exports write them; a leap second (23:59:60) is not, and its record is
// skipped with a warning. Birth dates are plain days ("1989-04-24"). Both are read by the
// platform's ISO 8601 reader (platform/Iso8601.h).
#pragma once

#include <optional>
#include <string_view>

#include "velk/Calendar.h"
#include "velk/Date.h"

namespace velk::ingest {

class ExportDate {
 public:
  /// The moment that `text` names, or nothing when it is not a date in one of the forms above
  /// or names no real day (2023-02-30) or time (25:00).
  static std::optional<Date> parse(std::string_view text);

  /// A day as year, month and day components ("1989-04-24", or "19890424" as the first exports
  /// wrote it); nothing when not such a day.
  static std::optional<platform::DateComponents> parseDay(std::string_view text);
};

}  // namespace velk::ingest
