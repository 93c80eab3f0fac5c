// A fixed-pattern date formatter, as the platform's date formatter with a date format set: ICU
// pattern letters ("yyyy-MM-dd'T'HH:mm:ss.SSS"), a time zone and a locale.
//
// Copies share one formatter, as references to the platform's formatter object do. Formatting and
// parsing are safe from any thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "velk/Date.h"

namespace velk::platform {

class DateFormatter {
 public:
  /// `timeZoneIdentifier` is an IANA identifier; absent means the device's current time zone,
  /// looked up each time the formatter is used (so a formatter follows the device when it moves).
  /// `localeIdentifier` is a BCP 47 tag or an ICU locale name ("en", "de-CH", "fr_FR"). An
  /// unknown zone or a pattern that ICU rejects stops the process: both are fixed by the library.
  DateFormatter(std::string pattern, std::optional<std::string> timeZoneIdentifier,
                std::string localeIdentifier);

  /// `date` written with the pattern in the formatter's zone.
  std::string string(Date date) const;

  /// The moment that `text` names, read strictly: the whole text must match the pattern.
  std::optional<Date> date(const std::string& text) const;

  const std::string& pattern() const;
  /// The zone given at construction; absent when the formatter follows the device.
  const std::optional<std::string>& timeZoneIdentifier() const;
  const std::string& localeIdentifier() const;

 private:
  struct Shared;
  static std::shared_ptr<Shared> makeShared(std::string pattern,
                                            std::optional<std::string> timeZoneIdentifier,
                                            std::string localeIdentifier);
  std::shared_ptr<Shared> shared_;
};

}  // namespace velk::platform
