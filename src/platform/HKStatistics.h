// Statistics of a collection query: one HKStatistics per interval, and the collection that yields
// them for any stretch of time, also for intervals that hold no data.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/CumulativeSum.h"
#include "platform/HKObjectType.h"
#include "platform/HKQuantity.h"
#include "velk/Calendar.h"
#include "velk/Date.h"

namespace velk::platform {

class HKStatistics {
 public:
  HKStatistics(HKObjectType quantityType, Date startDate, Date endDate,
               std::optional<HKQuantity> sumQuantity)
      : quantityType_(quantityType),
        startDate_(startDate),
        endDate_(endDate),
        sumQuantity_(sumQuantity) {}

  const HKObjectType& quantityType() const { return quantityType_; }
  Date startDate() const { return startDate_; }
  Date endDate() const { return endDate_; }
  /// Absent when no matching sample touches the interval (or the query asked for no sum).
  const std::optional<HKQuantity>& sumQuantity() const { return sumQuantity_; }

 private:
  HKObjectType quantityType_;
  Date startDate_;
  Date endDate_;
  std::optional<HKQuantity> sumQuantity_;
};

/// The length of a statistics interval: whole calendar days, or a fixed number of seconds.
struct StatisticsInterval {
  std::int64_t days = 0;
  double seconds = 0;

  /// Days when `components` sets only `day`; seconds when it sets only hour, minute and second.
  /// Absent for any other shape (months and years are not supported by this store).
  static std::optional<StatisticsInterval> fromComponents(const DateComponents& components);
};

class HKStatisticsCollection {
 public:
  /// `samples` are the matching samples with their values in `unit`; `cumulativeSum` tells whether
  /// the query asked for sums at all. Intervals step both ways from `anchor`, in the calendar of
  /// `timeZone`. Intervals of whole days are calendar days, as in the platform's day totals: each
  /// runs from the first instant of a day to the first instant of the day after (23 or 25 hours
  /// across clock changes; after the gap where the clocks skip midnight), and the anchor only
  /// names the day they are counted from, whatever its time of day. Intervals of hours, minutes
  /// and seconds start at the anchor itself. Overlapping sources are merged in the order of
  /// `priority`.
  HKStatisticsCollection(HKObjectType quantityType, HKUnit unit, bool cumulativeSum, Date anchor,
                         StatisticsInterval interval, std::string timeZone,
                         std::shared_ptr<const std::vector<SummableSample>> samples,
                         SourcePriority priority = {});

  /// Calls `block` for every interval that overlaps [from, to], oldest first, with or without
  /// data.
  void enumerateStatistics(Date from, Date to,
                           const std::function<void(const HKStatistics&)>& block) const;

 private:
  std::optional<Date> intervalStart(std::int64_t index) const;
  HKStatistics statisticsBetween(Date start, Date end) const;

  HKObjectType quantityType_;
  HKUnit unit_;
  bool cumulativeSum_;
  Date anchor_;
  StatisticsInterval interval_;
  Calendar calendar_;
  DateComponents anchorDay_;  ///< year, month and day of the anchor, for day intervals
  std::shared_ptr<const std::vector<SummableSample>> samples_;
  SourcePriority priority_;
};

}  // namespace velk::platform
