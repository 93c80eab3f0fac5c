#include "velk/DayTable.h"

#include <tuple>

#include "table/DayRow.h"
#include "velk/Calendar.h"
#include "velk/DayDocuments.h"
#include "velk/VelkExtractionManager.h"

namespace velk::table {
namespace {

Error rangeError(const std::string& message) {
  return Error(kTableErrorDomain, static_cast<std::int64_t>(TableError::badRange), message);
}

}  // namespace

Result<std::vector<Date>> dayMoments(const DayRange& range) {
  using Moments = Result<std::vector<Date>>;
  const platform::Calendar calendar = platform::Calendar::current();
  auto day = calendar.components(range.first);
  const auto lastDay = calendar.components(range.last);
  day.hour = range.hour;
  day.minute = range.minute;
  day.second = 0;
  day.nanosecond.reset();
  std::vector<Date> moments;
  // Days are counted on the calendar (lenient day numbers roll over into the next month), so a
  // range across a DST change still asks every day at the same wall time.
  for (std::int64_t offset = 0;; ++offset) {
    auto components = day;
    components.day = *day.day + offset;
    const auto moment = calendar.date(components);
    if (!moment) {
      return Moments::failure(rangeError("the calendar cannot name a day of the range"));
    }
    const auto named = calendar.components(*moment);
    if (std::tie(*named.year, *named.month, *named.day) >
        std::tie(*lastDay.year, *lastDay.month, *lastDay.day)) {
      break;
    }
    moments.push_back(*moment);
  }
  if (moments.empty()) {
    return Moments::failure(rangeError("the first day is after the last"));
  }
  return Moments::success(std::move(moments));
}

Result<DayTable> makeDayTable(const DayRange& range, const std::vector<VelkDataType>& kinds,
                              const DayProgress& progress) {
  auto moments = dayMoments(range);
  if (moments.isFailure()) {
    return Result<DayTable>::failure(moments.error());
  }
  DayTable table{columnsOf(kinds), {}};
  const DayRowMaker maker(table.columns);
  for (const Date moment : moments.value()) {
    // A manager of its own for each day: the physical and body owners keep what a read gave them
    // for their whole life, and a later day whose read finds nothing would report it again.
    VelkExtractionManager manager;
    DayDocuments documents;
    auto answers = askDay(manager, kinds, moment);
    for (std::size_t i = 0; i < kinds.size(); ++i) {
      if (answers[i].isFailure()) {
        return Result<DayTable>::failure(answers[i].error());
      }
      documents.at(static_cast<std::size_t>(kinds[i])) = std::move(answers[i]).value();
    }
    table.rows.push_back(maker.row(moment, documents));
    if (progress && !progress(table.rows.size(), moments.value().size())) {
      return Result<DayTable>::failure(Error(kTableErrorDomain,
                                             static_cast<std::int64_t>(TableError::stopped),
                                             "the table was stopped before its last day"));
    }
  }
  return Result<DayTable>::success(std::move(table));
}

}  // namespace velk::table
