#include "velk/ingest/ExportDate.h"

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

}  // namespace

std::optional<Date> ExportDate::parse(std::string_view text) {
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
  if (!offset || !cursor.atEnd() || hour > 23 || minute > 59 || second > 60) {
    return std::nullopt;
  }
  const auto civil = civilDay(year, month, day);
  if (!civil) {
    return std::nullopt;
  }
  const std::chrono::sys_seconds local = *civil + std::chrono::hours{hour} +
                                         std::chrono::minutes{minute} +
                                         std::chrono::seconds{second};
  const auto utc = local - std::chrono::seconds{*offset};
  return Date::fromUnixSeconds(static_cast<double>(utc.time_since_epoch().count()));
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
