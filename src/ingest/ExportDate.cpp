#include "ingest/ExportDate.h"

#include <charconv>
#include <chrono>
#include <cstdint>

namespace velk::ingest {

namespace {

// Reads the digits of one fixed-width field and moves past them.
class FieldCursor {
 public:
  explicit FieldCursor(std::string_view text) : text_(text) {}

  bool digits(std::size_t width, int& out) {
    if (text_.size() < width) {
      return false;
    }
    for (std::size_t i = 0; i < width; ++i) {
      if (text_[i] < '0' || text_[i] > '9') {
        return false;
      }
    }
    const auto [end, error] = std::from_chars(text_.data(), text_.data() + width, out);
    if (error != std::errc() || end != text_.data() + width) {
      return false;
    }
    text_.remove_prefix(width);
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

  bool atEnd() const { return text_.empty(); }

 private:
  std::string_view text_;
};

std::optional<std::chrono::sys_days> civilDay(int year, int month, int day) {
  const std::chrono::year_month_day ymd{std::chrono::year{year},
                                        std::chrono::month{static_cast<unsigned>(month)},
                                        std::chrono::day{static_cast<unsigned>(day)}};
  if (!ymd.ok()) {
    return std::nullopt;
  }
  return std::chrono::sys_days{ymd};
}

// "+0100", "-08:00", "Z": the offset east of UTC in seconds.
std::optional<int> readOffset(FieldCursor& cursor) {
  if (cursor.accept('Z')) {
    return 0;
  }
  int sign = 0;
  if (cursor.accept('+')) {
    sign = 1;
  } else if (cursor.accept('-')) {
    sign = -1;
  } else {
    return std::nullopt;
  }
  int hours = 0;
  int minutes = 0;
  if (!cursor.digits(2, hours)) {
    return std::nullopt;
  }
  cursor.accept(':');
  if (!cursor.digits(2, minutes) || hours > 23 || minutes > 59) {
    return std::nullopt;
  }
  return sign * (hours * 3600 + minutes * 60);
}

std::optional<Date> fromFields(int year, int month, int day, int hour, int minute, int second,
                               int offsetSeconds) {
  if (hour > 23 || minute > 59 || second > 60) {
    return std::nullopt;
  }
  const auto civil = civilDay(year, month, day);
  if (!civil) {
    return std::nullopt;
  }
  const std::chrono::sys_seconds local = *civil + std::chrono::hours{hour} +
                                         std::chrono::minutes{minute} +
                                         std::chrono::seconds{second};
  const auto utc = local - std::chrono::seconds{offsetSeconds};
  return Date::fromUnixSeconds(static_cast<double>(utc.time_since_epoch().count()));
}

// The form of nearly every date of an export, "2024-03-10 08:30:00 +0100", read by position:
// a reader meets two of them per record. False when `text` is not written in exactly this
// shape (the general reading below then decides); else `date` is the moment, or nothing when
// the fields name no real day, time or offset.
bool readCommonForm(std::string_view text, std::optional<Date>& date) {
  constexpr std::string_view kShape = "dddd-dd-dd dd:dd:dd sdddd";
  if (text.size() != kShape.size()) {
    return false;
  }
  for (std::size_t i = 0; i < kShape.size(); ++i) {
    const char c = text[i];
    if (kShape[i] == 'd') {
      if (c < '0' || c > '9') {
        return false;
      }
      continue;
    }
    if (kShape[i] == 's' ? c != '+' && c != '-' : c != kShape[i]) {
      return false;
    }
  }
  const auto number = [&](std::size_t at, std::size_t width) {
    int value = 0;
    for (std::size_t i = at; i < at + width; ++i) {
      value = value * 10 + (text[i] - '0');
    }
    return value;
  };
  const int offsetHours = number(21, 2);
  const int offsetMinutes = number(23, 2);
  if (offsetHours > 23 || offsetMinutes > 59) {
    date.reset();
    return true;
  }
  const int sign = text[20] == '-' ? -1 : 1;
  date = fromFields(number(0, 4), number(5, 2), number(8, 2), number(11, 2), number(14, 2),
                    number(17, 2), sign * (offsetHours * 3600 + offsetMinutes * 60));
  return true;
}

}  // namespace

std::optional<Date> ExportDate::parse(std::string_view text) {
  if (std::optional<Date> date; readCommonForm(text, date)) {
    return date;
  }
  FieldCursor cursor(text);
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  if (!cursor.digits(4, year)) {
    return std::nullopt;
  }
  const bool separated = cursor.accept('-');
  if (!cursor.digits(2, month) || (separated && !cursor.accept('-')) || !cursor.digits(2, day)) {
    return std::nullopt;
  }
  if (separated && !cursor.accept(' ') && !cursor.accept('T')) {
    return std::nullopt;
  }
  if (!cursor.digits(2, hour) || (separated && !cursor.accept(':')) || !cursor.digits(2, minute) ||
      (separated && !cursor.accept(':')) || !cursor.digits(2, second)) {
    return std::nullopt;
  }
  cursor.accept(' ');
  const auto offset = readOffset(cursor);
  if (!offset || !cursor.atEnd()) {
    return std::nullopt;
  }
  return fromFields(year, month, day, hour, minute, second, *offset);
}

std::optional<platform::DateComponents> ExportDate::parseDay(std::string_view text) {
  FieldCursor cursor(text);
  int year = 0, month = 0, day = 0;
  if (!cursor.digits(4, year) || !cursor.accept('-') || !cursor.digits(2, month) ||
      !cursor.accept('-') || !cursor.digits(2, day) || !cursor.atEnd() ||
      !civilDay(year, month, day)) {
    return std::nullopt;
  }
  platform::DateComponents components;
  components.year = year;
  components.month = month;
  components.day = day;
  return components;
}

}  // namespace velk::ingest
