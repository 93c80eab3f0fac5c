// The day table: one row per calendar day, read from the summary documents that the library
// produced for that day, flattened by one declarative list of columns (columns()).
//
// A table value is never computed a second time: a document column holds the value at its key
// path in the dictionary form of its kind's document, so it cannot disagree with that document.
// The only rule of the table's own decides whether a kind had data on a day (see columns()); where
// it had none, the kind's cells are empty. CSV, NDJSON (TableFormats.h), the report and the
// language bindings all read tables made here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "velk/Date.h"
#include "velk/Error.h"
#include "velk/Result.h"
#include "velk/VelkDataType.h"

namespace velk::table {

/// Errors of the table itself; the library's own errors pass through unchanged.
inline constexpr const char* kTableErrorDomain = "velk.table";
enum class TableError : std::int64_t {
  noAnswer = 1,  ///< the library gave no answer for a day in time (a released reader)
  badRange = 2,  ///< the first day lies after the last, or the calendar cannot name a day
  stopped = 3,   ///< the progress handler asked to stop
};

/// What a column's cells hold. Every cell may also be empty (null).
enum class CellType {
  date,      ///< text "yyyy-MM-dd", a calendar day in the device's zone
  dateTime,  ///< text "yyyy-MM-dd'T'HH:mm:ssxxx", local time with its offset (whole seconds)
  integer,   ///< a whole number in the column's unit
  flag,      ///< true or false
  text,      ///< text
};

/// Where a column's cells come from.
enum class ColumnSource {
  day,       ///< the day the row is about
  document,  ///< the value at `path` in the dictionary of the `kind` document
  presence,  ///< whether `kind` had data that day (the presence rule of columns())
  sources,   ///< the sources of data named by the documents of the kinds that had data
};

struct Column {
  std::string_view name;  ///< the stable column name ("steps")
  std::string_view unit;  ///< the unit of an integer column ("s", "kcal"); empty for the others
  CellType type;
  ColumnSource source;
  std::optional<VelkDataType> kind;  ///< the kind a document or presence column belongs to
  std::string_view path;             ///< for document columns: a JSON pointer into the dictionary
};

/// Every column, in output order: date; the sleep, physical and body columns; has_sleep,
/// has_physical, has_body; sources.
///
/// Presence rule: a kind had data on a day when any of its integer columns holds a value other
/// than null or 0. So a night without sleep samples (whose document the library writes with zero
/// durations) is empty, not a row of zeros, and a day without any step, energy, heart-rate or HRV
/// sample has no physical cells. The body document carries the newest weight and height up to the
/// day, so body cells stay filled after the first measurement, as the document does.
std::span<const Column> columns();

/// The columns that a table of `kinds` has: those of no kind and those of the kinds given, in the
/// order of columns().
std::vector<Column> columnsOf(const std::vector<VelkDataType>& kinds);

/// The kinds that the names ask for, "all" standing for the three; each kind once, in the order
/// of first mention. Absent when a name is none of "sleep", "physical", "body", "all".
std::optional<std::vector<VelkDataType>> kindsFromNames(const std::vector<std::string>& names);

/// The name of `kind` that kindsFromNames reads: "sleep", "physical" or "body".
std::string_view kindName(VelkDataType kind);

/// A run of calendar days in the device's zone, both ends included, every day asked at the same
/// local time. Noon is the usual time: the night that ends on the day is complete then, and no
/// DST change falls on it.
struct DayRange {
  Date first;  ///< any moment of the first day
  Date last;   ///< any moment of the last day
  int hour = 12;
  int minute = 0;
};

/// The moments at which the days of `range` are asked: `hour`:`minute` local on each day, counted
/// on the device's calendar (a range across a DST change keeps the wall time). Fails with
/// TableError::badRange when `first` lies after `last`. Needs an installed device.
Result<std::vector<Date>> dayMoments(const DayRange& range);

struct DayTable {
  std::vector<Column> columns;  ///< columnsOf(the kinds asked)
  /// One row per day, in day order; cell i belongs to columns[i]: a string, a whole number, a
  /// boolean, or null for an empty cell.
  std::vector<std::vector<nlohmann::json>> rows;
};

/// Called after each day with the days done and the days in the range; answers whether to go on
/// (false stops the table, e.g. when the user interrupts the host).
using DayProgress = std::function<bool(std::size_t done, std::size_t total)>;

/// The table of `kinds` for every day of `range`. Each day's kinds are asked at once, of an
/// extraction manager of that day's own: the physical and body owners keep what a read gave them
/// for their whole life, so a manager that served one day would report that day's value again on
/// a later day whose read finds nothing. The last extraction dates move as for any extraction.
/// The answers are awaited by driving the device's main queue on the calling thread, which must
/// be the host's main thread (the one that installed the device). Fails with the first error the
/// library answers with (the store's errors, e.g. on a device without health data), with
/// TableError::noAnswer, with TableError::badRange, or with TableError::stopped when the progress
/// handler answered false.
Result<DayTable> makeDayTable(const DayRange& range, const std::vector<VelkDataType>& kinds,
                              const DayProgress& progress = {});

}  // namespace velk::table
