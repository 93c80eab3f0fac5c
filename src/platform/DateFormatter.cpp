#include "platform/DateFormatter.h"

#include <unicode/calendar.h>
#include <unicode/locid.h>
#include <unicode/parsepos.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <map>
#include <mutex>
#include <utility>

#include "velk/Calendar.h"
#include "velk/DebugOutput.h"
#include "velk/Device.h"

namespace velk::platform {
namespace {

constexpr double kMillisecondsPerSecond = 1000.0;

// Hosts hand over BCP 47 tags ("en-US"); ICU's own names use underscores ("en_US"). Either works.
icu::Locale makeLocale(const std::string& identifier) {
  if (identifier.find('-') != std::string::npos) {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale tagged = icu::Locale::forLanguageTag(identifier, status);
    if (U_SUCCESS(status) && !tagged.isBogus()) {
      return tagged;
    }
  }
  return icu::Locale(identifier.c_str());
}

icu::TimeZone* makeZone(const std::string& identifier) {
  if (!Calendar::isKnownTimeZone(identifier)) {
    fatalError("unknown time zone identifier \"" + identifier + "\" for a date formatter");
  }
  return icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(identifier));
}

}  // namespace

// The ICU formatter and the zone it was last set to. SimpleDateFormat keeps a calendar that it
// changes while it works, so every use holds the mutex.
struct DateFormatter::Shared {
  std::string pattern;
  std::optional<std::string> zone;
  std::string locale;

  std::mutex mutex;
  std::unique_ptr<icu::SimpleDateFormat> format;
  std::string appliedZone;

  // Called with the mutex held: puts the device's current zone in place for a formatter that
  // follows the device.
  void followDevice() {
    if (zone) {
      return;
    }
    const std::string& current = Device::current()->timeZone();
    if (current != appliedZone) {
      format->adoptTimeZone(makeZone(current));
      appliedZone = current;
    }
  }
};

std::shared_ptr<DateFormatter::Shared> DateFormatter::makeShared(
    std::string pattern, std::optional<std::string> timeZoneIdentifier,
    std::string localeIdentifier) {
  auto shared = std::make_shared<Shared>();
  shared->pattern = std::move(pattern);
  shared->zone = std::move(timeZoneIdentifier);
  shared->locale = std::move(localeIdentifier);

  UErrorCode status = U_ZERO_ERROR;
  shared->format = std::make_unique<icu::SimpleDateFormat>(
      icu::UnicodeString::fromUTF8(shared->pattern), makeLocale(shared->locale), status);
  if (U_FAILURE(status)) {
    fatalError("date format pattern \"" + shared->pattern +
               "\" is not usable: " + u_errorName(status));
  }
  // As the platform's formatters: parsing is strict unless asked otherwise, and a wall time that
  // occurs twice reads as its first occurrence, as the calendar reads it.
  shared->format->setLenient(false);
  std::unique_ptr<icu::Calendar> calendar(shared->format->getCalendar()->clone());
  calendar->setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
  shared->format->adoptCalendar(calendar.release());
  if (shared->zone) {
    shared->format->adoptTimeZone(makeZone(*shared->zone));
    shared->appliedZone = *shared->zone;
  }
  return shared;
}

DateFormatter::DateFormatter(std::string pattern, std::optional<std::string> timeZoneIdentifier,
                             std::string localeIdentifier) {
  // Making an ICU formatter loads the locale's symbols and number formats, which costs far more
  // than formatting with it, and the summaries' builders make theirs per request. Equal formatters
  // (pattern, zone or none, locale) therefore share one, as copies do; they are kept for the
  // whole process (never destroyed).
  static auto* const mutex = new std::mutex;
  static auto* const made = new std::map<std::string, std::shared_ptr<Shared>>;
  std::string key = pattern;
  key.append(1, '\0').append(timeZoneIdentifier.value_or("")).append(1, '\0');
  key.append(timeZoneIdentifier ? "zone" : "device").append(1, '\0').append(localeIdentifier);
  const std::lock_guard lock(*mutex);
  auto& shared = (*made)[key];
  if (!shared) {
    shared =
        makeShared(std::move(pattern), std::move(timeZoneIdentifier), std::move(localeIdentifier));
  }
  shared_ = shared;
}

std::string DateFormatter::string(Date date) const {
  std::lock_guard lock(shared_->mutex);
  shared_->followDevice();
  icu::UnicodeString text;
  shared_->format->format(date.timeIntervalSince1970() * kMillisecondsPerSecond, text);
  std::string result;
  text.toUTF8String(result);
  return result;
}

std::optional<Date> DateFormatter::date(const std::string& text) const {
  const icu::UnicodeString input = icu::UnicodeString::fromUTF8(text);
  std::lock_guard lock(shared_->mutex);
  shared_->followDevice();
  icu::ParsePosition position(0);
  const UDate milliseconds = shared_->format->parse(input, position);
  if (position.getErrorIndex() >= 0 || position.getIndex() != input.length()) {
    return std::nullopt;
  }
  return Date::fromUnixSeconds(milliseconds / kMillisecondsPerSecond);
}

const std::string& DateFormatter::pattern() const {
  return shared_->pattern;
}

const std::optional<std::string>& DateFormatter::timeZoneIdentifier() const {
  return shared_->zone;
}

const std::string& DateFormatter::localeIdentifier() const {
  return shared_->locale;
}

}  // namespace velk::platform
