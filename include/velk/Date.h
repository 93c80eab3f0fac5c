// An absolute point in time, as the platform keeps it: seconds (with fraction) since the
// reference moment 2001-01-01T00:00:00Z. Dates carry no calendar or time zone; day boundaries
// are the calendar's business.
#pragma once

#include <compare>

namespace velk {

class Date {
 public:
  /// Seconds between 1970-01-01T00:00:00Z and the reference moment 2001-01-01T00:00:00Z.
  static constexpr double kReferenceToUnixEpoch = 978307200.0;

  /// The reference moment itself.
  constexpr Date() = default;

  static constexpr Date fromReferenceSeconds(double seconds) { return Date(seconds); }
  static constexpr Date fromUnixSeconds(double seconds) {
    return Date(seconds - kReferenceToUnixEpoch);
  }

  constexpr double timeIntervalSinceReferenceDate() const { return seconds_; }
  constexpr double timeIntervalSince1970() const { return seconds_ + kReferenceToUnixEpoch; }
  constexpr double timeIntervalSince(Date other) const { return seconds_ - other.seconds_; }
  constexpr Date addingTimeInterval(double seconds) const { return Date(seconds_ + seconds); }

  friend constexpr auto operator<=>(Date, Date) = default;

 private:
  constexpr explicit Date(double seconds) : seconds_(seconds) {}
  double seconds_ = 0.0;
};

}  // namespace velk
