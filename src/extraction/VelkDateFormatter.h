// The library's four date formatters and the two operations that use them. Every builder that
// writes dates as text makes its own. None of the patterns carries a zone designator, so a UTC
// text and a local text of one moment look alike; each document field says which one it uses.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/DateFormatter.h"
#include "velk/Date.h"

namespace velk {

struct VelkDateFormatter {
  /// Builds the four formatters with the locale of the device's first preferred language. A
  /// device with no preferred language is a host error: the constructor reports it and stops.
  VelkDateFormatter();

  /// "yyyy-MM-dd'T'HH:mm:ss.SSS" in UTC.
  platform::DateFormatter dateISOFormatterDate;
  /// "yyyy-MM-dd'T'HH:mm:ss.SSS" in the device's current zone.
  platform::DateFormatter dateISOFormatterDateLocal;
  /// "yyyy-MM-dd" in UTC.
  platform::DateFormatter UTCdateFormatterDate;
  /// "yyyy-MM-dd" in the device's current zone.
  platform::DateFormatter dateFormatterDate;

  /// `date` written by `formatter`; absent (not an empty text) when `date` is absent.
  std::optional<std::string> formatDate(std::optional<Date> date,
                                        const platform::DateFormatter& formatter) const;

  /// Whole Gregorian years from `birthDate` to the device's "now", in the device's zone; absent
  /// when `birthDate` is.
  std::optional<std::int64_t> getAge(std::optional<Date> birthDate) const;
};

}  // namespace velk
