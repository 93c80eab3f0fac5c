#include "velk/Calendar.h"

#include <unicode/gregocal.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <cmath>
#include <limits>
#include <map>
#include <mutex>

#include "velk/DebugOutput.h"
#include "velk/Device.h"

namespace velk::platform {

// A configured ICU calendar for one zone. ICU calendars keep scratch state while they compute, so
// operations never touch this one directly: they clone it (a const operation) and work on the copy.
struct Calendar::Prototype {
  std::unique_ptr<icu::Calendar> calendar;
};

namespace {

constexpr double kMillisecondsPerSecond = 1000.0;
constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

std::unique_ptr<icu::TimeZone> lookUpZone(const std::string& identifier) {
  std::unique_ptr<icu::TimeZone> zone(
      icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(identifier)));
  icu::UnicodeString resolved;
  zone->getID(resolved);
  // ICU answers an identifier it does not know with the "unknown" zone rather than failing.
  if (identifier.empty() || resolved == icu::UnicodeString(UCAL_UNKNOWN_ZONE_ID)) {
    return nullptr;
  }
  return zone;
}

std::unique_ptr<icu::Calendar> makeCalendar(const std::string& identifier) {
  auto zone = lookUpZone(identifier);
  if (!zone) {
    fatalError("unknown time zone identifier \"" + identifier + "\"");
  }
  UErrorCode status = U_ZERO_ERROR;
  auto calendar =
      std::make_unique<icu::GregorianCalendar>(zone.release(), icu::Locale::getRoot(), status);
  if (U_FAILURE(status)) {
    fatalError(std::string("cannot make a Gregorian calendar: ") + u_errorName(status));
  }
  // Lenient, as the platform's calendar: out-of-range fields roll over. A wall time that the
  // clocks skip is read with the offset before the change, so it lands after the gap (02:30 on a
  // spring-forward night is 03:30). A wall time that occurs twice names its first occurrence.
  calendar->setLenient(true);
  calendar->setSkippedWallTimeOption(UCAL_WALLTIME_LAST);
  calendar->setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
  return calendar;
}

std::optional<std::int32_t> narrow(std::int64_t value) {
  if (value < std::numeric_limits<std::int32_t>::min() ||
      value > std::numeric_limits<std::int32_t>::max()) {
    return std::nullopt;
  }
  return static_cast<std::int32_t>(value);
}

// ICU counts milliseconds; the platform's dates carry finer fractions. Operations work on the
// whole second and put the fraction back afterwards, so that it is never rounded away.
struct SplitDate {
  double wholeSeconds;
  double fraction;
};

SplitDate split(Date date) {
  const double seconds = date.timeIntervalSinceReferenceDate();
  const double whole = std::floor(seconds);
  return {whole, seconds - whole};
}

UDate toICU(double referenceSeconds) {
  return (referenceSeconds + Date::kReferenceToUnixEpoch) * kMillisecondsPerSecond;
}

Date fromICU(UDate milliseconds) {
  return Date::fromUnixSeconds(milliseconds / kMillisecondsPerSecond);
}

std::int64_t field(const icu::Calendar& calendar, UCalendarDateFields which) {
  UErrorCode status = U_ZERO_ERROR;
  const std::int32_t value = calendar.get(which, status);
  return U_SUCCESS(status) ? value : 0;
}

}  // namespace

// The prototype of a zone is made on first use and shared by every calendar of that zone from
// then on: making one loads the zone's rules and the locale's week data, which costs more than all
// that a day's summaries then ask of it. Prototypes are never changed, so sharing them is safe.
Calendar::Calendar(const std::string& timeZoneIdentifier) : zone_(timeZoneIdentifier) {
  // Kept for the whole process (never destroyed), like the zones ICU itself caches.
  static auto* const mutex = new std::mutex;
  static auto* const made = new std::map<std::string, std::shared_ptr<const Prototype>>;
  const std::lock_guard lock(*mutex);
  auto& prototype = (*made)[timeZoneIdentifier];
  if (!prototype) {
    prototype = std::make_shared<const Prototype>(Prototype{makeCalendar(timeZoneIdentifier)});
  }
  prototype_ = prototype;
}

Calendar::~Calendar() = default;
Calendar::Calendar(const Calendar&) = default;
Calendar& Calendar::operator=(const Calendar&) = default;

Calendar Calendar::current() {
  return Calendar(Device::current()->timeZone());
}

bool Calendar::isKnownTimeZone(const std::string& identifier) {
  return lookUpZone(identifier) != nullptr;
}

namespace {

std::unique_ptr<icu::Calendar> workingCopy(const icu::Calendar& prototype) {
  return std::unique_ptr<icu::Calendar>(prototype.clone());
}

// The moment of `calendar`'s fields, or absent when ICU cannot make one.
std::optional<Date> resolve(icu::Calendar& calendar, double fraction = 0.0) {
  UErrorCode status = U_ZERO_ERROR;
  const UDate milliseconds = calendar.getTime(status);
  if (U_FAILURE(status) || !std::isfinite(milliseconds)) {
    return std::nullopt;
  }
  return fromICU(milliseconds).addingTimeInterval(fraction);
}

}  // namespace

DateComponents Calendar::components(Date date) const {
  const auto [whole, fraction] = split(date);
  auto calendar = workingCopy(*prototype_->calendar);
  UErrorCode status = U_ZERO_ERROR;
  calendar->setTime(toICU(whole), status);
  DateComponents result;
  if (U_FAILURE(status)) {
    return result;
  }
  result.year = field(*calendar, UCAL_EXTENDED_YEAR);
  result.month = field(*calendar, UCAL_MONTH) + 1;
  result.day = field(*calendar, UCAL_DATE);
  result.hour = field(*calendar, UCAL_HOUR_OF_DAY);
  result.minute = field(*calendar, UCAL_MINUTE);
  result.second = field(*calendar, UCAL_SECOND);
  const auto nanoseconds = static_cast<std::int64_t>(
      std::llround(fraction * static_cast<double>(kNanosecondsPerSecond)));
  result.nanosecond = std::min(nanoseconds, kNanosecondsPerSecond - 1);
  return result;
}

std::optional<Date> Calendar::date(const DateComponents& components) const {
  auto calendar = workingCopy(*prototype_->calendar);
  calendar->clear();
  // A field left out takes its smallest value; for the year that is year 1, not ICU's 1970.
  const auto year = narrow(components.year.value_or(1));
  const auto month = narrow(components.month.value_or(1) - 1);
  const auto day = narrow(components.day.value_or(1));
  const auto hour = narrow(components.hour.value_or(0));
  const auto minute = narrow(components.minute.value_or(0));
  const auto second = narrow(components.second.value_or(0));
  if (!year || !month || !day || !hour || !minute || !second) {
    return std::nullopt;
  }
  calendar->set(UCAL_EXTENDED_YEAR, *year);
  calendar->set(UCAL_MONTH, *month);
  calendar->set(UCAL_DATE, *day);
  calendar->set(UCAL_HOUR_OF_DAY, *hour);
  calendar->set(UCAL_MINUTE, *minute);
  calendar->set(UCAL_SECOND, *second);
  const auto nanoseconds = components.nanosecond.value_or(0);
  return resolve(*calendar,
                 static_cast<double>(nanoseconds) / static_cast<double>(kNanosecondsPerSecond));
}

std::optional<Date> Calendar::dateBySettingHour(std::int64_t hour, Date date) const {
  if (hour < 0 || hour > 23) {
    return std::nullopt;
  }
  const auto now = components(date);
  if (now.hour == hour) {
    return date;
  }
  // The first candidate is the hour on the same day; if that is not later than `date`, the hour
  // comes next on the following day. Where the clocks skip the hour, the lenient reading gives the
  // first moment after the gap, which is what "the next moment with that hour" means there.
  for (std::int64_t dayOffset = 0; dayOffset <= 2; ++dayOffset) {
    DateComponents wanted{now.year, now.month, *now.day + dayOffset, hour, 0, 0, std::nullopt};
    const auto candidate = this->date(wanted);
    if (!candidate) {
      return std::nullopt;
    }
    if (*candidate > date) {
      return candidate;
    }
  }
  return std::nullopt;
}

std::optional<Date> Calendar::dateByAddingDays(std::int64_t days, Date date) const {
  const auto amount = narrow(days);
  if (!amount) {
    return std::nullopt;
  }
  const auto [whole, fraction] = split(date);
  auto calendar = workingCopy(*prototype_->calendar);
  UErrorCode status = U_ZERO_ERROR;
  calendar->setTime(toICU(whole), status);
  calendar->add(UCAL_DATE, *amount, status);
  if (U_FAILURE(status)) {
    return std::nullopt;
  }
  return resolve(*calendar, fraction);
}

std::int64_t Calendar::yearsBetween(Date from, Date to) const {
  auto calendar = workingCopy(*prototype_->calendar);
  UErrorCode status = U_ZERO_ERROR;
  calendar->setTime(from.timeIntervalSince1970() * kMillisecondsPerSecond, status);
  const std::int32_t years = calendar->fieldDifference(
      to.timeIntervalSince1970() * kMillisecondsPerSecond, UCAL_YEAR, status);
  return U_SUCCESS(status) ? years : 0;
}

}  // namespace velk::platform
