// The library's one reader of ISO 8601 dates and times. Store files, health exports and the
// command line each write them a little differently, so a caller names the variants it takes
// (Iso8601Syntax) and the reader takes the text apart by them, checking that the fields name a
// real day, time and offset:
//
//   2024-03-10T08:30:00+01:00    the extended form, which every syntax reads
//   2024-03-10T07:30:00.250Z     fractional seconds
//   2024-03-10 08:30:00 +0100    a space for the "T", a space before the offset, no colon in it
//   20240310083000+0100          the basic form, without separators (and without "T")
//   2024-03-10T08:30             no seconds
//   2024-03-10T08:30:00          no offset: a wall time, for a calendar to place
//   2024-03-10                   a day alone
//
// The reader is a pure function of its arguments, safe to call from any thread, and allocates
// nothing: exports hand it two dates per record.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "velk/Calendar.h"
#include "velk/Date.h"

namespace velk::platform {

/// The variants a caller reads besides "2024-03-10T08:30:00+01:00" (hours up to 23, minutes and
/// seconds up to 59, offsets "Z" or "+HH:MM" up to 23:59). Each is off unless set.
struct Iso8601Syntax {
  bool spaceForT = false;           ///< "2024-03-10 08:30:00+01:00"
  bool basicForm = false;           ///< "20240310083000+0100" (seconds and offset still required)
  bool secondsOptional = false;     ///< "2024-03-10T08:30+01:00"
  std::size_t fractionDigits = 0;   ///< the most digits after "." in the seconds; 0: none
  bool leapSecond = false;          ///< second 60, which counts as the next minute's 0
  bool offsetOptional = false;      ///< "2024-03-10T08:30:00", a wall time
  bool offsetWithoutColon = false;  ///< "+0100"
  bool spaceBeforeOffset = false;   ///< "2024-03-10 08:30:00 +0100", one space
  bool dayAlone = false;            ///< "2024-03-10"
};

/// What a text says: always a day; a time unless it is a day alone; an offset unless it is a
/// wall time or a day alone.
struct Iso8601Value {
  /// Year, month and day; hour, minute and second when a time was written (second 0 when the
  /// seconds were left out), and the nanosecond when a fraction was.
  DateComponents components;
  double fraction = 0;  ///< the fraction of a second as written, 0 without one
  std::optional<int> utcOffsetSeconds;

  /// The moment the text names, when it gave an offset.
  std::optional<Date> moment() const;
};

/// The value `text` holds, written wholly in `syntax`; absent for anything else, and for fields
/// that name no real day (2023-02-29) or time (25:00).
std::optional<Iso8601Value> readIso8601(std::string_view text, const Iso8601Syntax& syntax);

/// A day alone, "YYYY-MM-DD", as year, month and day; absent for anything else.
std::optional<DateComponents> readIso8601Day(std::string_view text);

}  // namespace velk::platform
