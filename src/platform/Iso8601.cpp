#include "platform/Iso8601.h"

#include <chrono>
#include <cstdint>

namespace velk::platform {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

// Walks through the text field by field.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : text_(text) {}

  /// Reads exactly `width` digits as a number and moves past them; false when they are not all
  /// there.
  bool number(std::size_t width, int& out) {
    if (text_.size() < width) {
      return false;
    }
    int value = 0;
    for (std::size_t i = 0; i < width; ++i) {
      if (!isDigit(text_[i])) {
        return false;
      }
      value = value * 10 + (text_[i] - '0');
    }
    text_.remove_prefix(width);
    out = value;
    return true;
  }

  /// Moves past `c` when it comes next.
  bool accept(char c) {
    if (!text_.empty() && text_.front() == c) {
      text_.remove_prefix(1);
      return true;
    }
    return false;
  }

  bool digitNext() const { return !text_.empty() && isDigit(text_.front()); }
  bool atEnd() const { return text_.empty(); }

 private:
  static bool isDigit(char c) { return c >= '0' && c <= '9'; }
  std::string_view text_;
};

bool isRealDay(int year, int month, int day) {
  return std::chrono::year_month_day{std::chrono::year{year},
                                     std::chrono::month{static_cast<unsigned>(month)},
                                     std::chrono::day{static_cast<unsigned>(day)}}
      .ok();
}

// "YYYY-MM-DD", or "YYYYMMDD" in the basic form. Sets `extended` to the form found.
bool readDay(Cursor& cursor, bool basicForm, bool& extended, DateComponents& components) {
  int year = 0, month = 0, day = 0;
  if (!cursor.number(4, year)) {
    return false;
  }
  extended = cursor.accept('-');
  if ((!extended && !basicForm) || !cursor.number(2, month) || (extended && !cursor.accept('-')) ||
      !cursor.number(2, day) || !isRealDay(year, month, day)) {
    return false;
  }
  components.year = year;
  components.month = month;
  components.day = day;
  return true;
}

// "HH:MM:SS" (or "HHMMSS"), the seconds optional where the syntax says so, then a fraction.
bool readTime(Cursor& cursor, const Iso8601Syntax& syntax, bool extended, Iso8601Value& value) {
  int hour = 0, minute = 0, second = 0;
  if (!cursor.number(2, hour) || (extended && !cursor.accept(':')) || !cursor.number(2, minute)) {
    return false;
  }
  const bool hasSeconds = extended ? cursor.accept(':') : cursor.digitNext();
  if (hasSeconds ? !cursor.number(2, second) : !syntax.secondsOptional) {
    return false;
  }
  if (hour > 23 || minute > 59 || second > (syntax.leapSecond ? 60 : 59)) {
    return false;
  }
  value.components.hour = hour;
  value.components.minute = minute;
  value.components.second = second;
  if (hasSeconds && syntax.fractionDigits > 0 && cursor.accept('.')) {
    // Summed digit by digit, so that the same text always gives the same double.
    std::int64_t nanoseconds = 0;
    std::int64_t unit = kNanosecondsPerSecond;
    double scale = 0.1;
    std::size_t count = 0;
    int digit = 0;
    while (count < syntax.fractionDigits && cursor.number(1, digit)) {
      value.fraction += scale * digit;
      scale /= 10;
      unit /= 10;
      nanoseconds += unit * digit;
      ++count;
    }
    if (count == 0) {
      return false;
    }
    value.components.nanosecond = nanoseconds;
  }
  return true;
}

// "Z", "+HH:MM" or "-HH:MM" ("+HHMM" where the syntax allows): seconds east of UTC.
std::optional<int> readOffset(Cursor& cursor, const Iso8601Syntax& syntax) {
  if (cursor.accept('Z')) {
    return 0;
  }
  const int sign = cursor.accept('+') ? 1 : cursor.accept('-') ? -1 : 0;
  int hours = 0, minutes = 0;
  if (sign == 0 || !cursor.number(2, hours) ||
      (!cursor.accept(':') && !syntax.offsetWithoutColon) || !cursor.number(2, minutes) ||
      hours > 23 || minutes > 59) {
    return std::nullopt;
  }
  return sign * (hours * 3600 + minutes * 60);
}

}  // namespace

std::optional<Date> Iso8601Value::moment() const {
  if (!utcOffsetSeconds) {
    return std::nullopt;
  }
  const std::chrono::year_month_day day{
      std::chrono::year{static_cast<int>(*components.year)},
      std::chrono::month{static_cast<unsigned>(*components.month)},
      std::chrono::day{static_cast<unsigned>(*components.day)}};
  const auto days = std::chrono::sys_days(day).time_since_epoch().count();
  const auto seconds = components.hour.value_or(0) * 3600 + components.minute.value_or(0) * 60 +
                       components.second.value_or(0);
  const double local = static_cast<double>(days) * 86400.0 + static_cast<double>(seconds);
  return Date::fromUnixSeconds(local - *utcOffsetSeconds + fraction);
}

std::optional<Iso8601Value> readIso8601(std::string_view text, const Iso8601Syntax& syntax) {
  Cursor cursor(text);
  Iso8601Value value;
  bool extended = true;
  if (!readDay(cursor, syntax.basicForm, extended, value.components)) {
    return std::nullopt;
  }
  if (cursor.atEnd()) {
    return syntax.dayAlone && extended ? std::optional(value) : std::nullopt;
  }
  if (extended && !cursor.accept('T') && !(syntax.spaceForT && cursor.accept(' '))) {
    return std::nullopt;
  }
  if (!readTime(cursor, syntax, extended, value)) {
    return std::nullopt;
  }
  if (cursor.atEnd() && syntax.offsetOptional) {
    return value;
  }
  if (syntax.spaceBeforeOffset) {
    cursor.accept(' ');
  }
  value.utcOffsetSeconds = readOffset(cursor, syntax);
  if (!value.utcOffsetSeconds || !cursor.atEnd()) {
    return std::nullopt;
  }
  return value;
}

std::optional<DateComponents> readIso8601Day(std::string_view text) {
  Cursor cursor(text);
  DateComponents components;
  bool extended = true;
  if (!readDay(cursor, false, extended, components) || !cursor.atEnd()) {
    return std::nullopt;
  }
  return components;
}

}  // namespace velk::platform
