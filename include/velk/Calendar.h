// The calendar service: the Gregorian calendar in a time zone, built on ICU as the platform's own
// calendar is. `Calendar::current()` is the device's calendar in the device's current time zone.
//
// All operations are pure functions of their arguments (and of the time zone rules), safe to call
// from any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "velk/Date.h"

namespace velk::platform {

/// Calendar fields; an absent field is "not set", as in the platform's date components.
struct DateComponents {
  std::optional<std::int64_t> year, month, day, hour, minute, second;
  std::optional<std::int64_t> nanosecond;
  friend bool operator==(const DateComponents&, const DateComponents&) = default;
};

class Calendar {
 public:
  /// The Gregorian calendar in the zone with this IANA identifier ("UTC", "Europe/Berlin").
  /// An unknown identifier is a programming error for the library (hosts check names first with
  /// isKnownTimeZone) and stops the process.
  explicit Calendar(const std::string& timeZoneIdentifier);
  ~Calendar();
  Calendar(const Calendar&);
  Calendar& operator=(const Calendar&);

  /// The device's calendar: Gregorian, in the device's current time zone.
  static Calendar current();

  static bool isKnownTimeZone(const std::string& identifier);

  const std::string& timeZoneIdentifier() const { return zone_; }

  /// Year, month, day, hour, minute, second (and nanosecond) of `date` in this calendar's zone.
  DateComponents components(Date date) const;

  /// The moment that the components name in this zone, read leniently as the platform does (a
  /// wall time that a DST gap skips lies after the gap; out-of-range fields roll over). Unset
  /// fields take their smallest value (month 1, day 1, 00:00:00). Absent when no moment results.
  std::optional<Date> date(const DateComponents& components) const;

  /// The calendar's answer to "set the hour of `date` to `hour`": `date` itself when its hour
  /// already is `hour`, else the next moment after `date` at which the hour is `hour`, with the
  /// lower fields at their start (minute 0, second 0).
  std::optional<Date> dateBySettingHour(std::int64_t hour, Date date) const;

  /// `date` moved by whole days in this calendar (wall time kept where it exists).
  std::optional<Date> dateByAddingDays(std::int64_t days, Date date) const;

  /// Whole years from `from` to `to` (the year component of their difference; negative when `to`
  /// lies before `from`).
  std::int64_t yearsBetween(Date from, Date to) const;

 private:
  // The zone's rules, looked up once; every operation works on a private copy of this calendar,
  // so that one Calendar value can be used from many threads at once.
  struct Prototype;
  std::string zone_;
  std::shared_ptr<const Prototype> prototype_;
};

}  // namespace velk::platform
