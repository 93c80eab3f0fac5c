#include <cmath>

#include "platform/HKStatistics.h"
#include "platform/HKStatisticsCollectionQuery.h"
#include "velk/DebugOutput.h"

namespace velk::platform {

std::optional<StatisticsInterval> StatisticsInterval::fromComponents(
    const DateComponents& components) {
  if (components.year || components.month || components.nanosecond) {
    return std::nullopt;
  }
  const bool clock = components.hour || components.minute || components.second;
  if (components.day) {
    if (clock || *components.day < 1) {
      return std::nullopt;
    }
    return StatisticsInterval{*components.day, 0};
  }
  const auto seconds =
      static_cast<double>(components.hour.value_or(0) * 3600 + components.minute.value_or(0) * 60 +
                          components.second.value_or(0));
  if (!clock || seconds <= 0) {
    return std::nullopt;
  }
  return StatisticsInterval{0, seconds};
}

HKStatisticsCollection::HKStatisticsCollection(
    HKObjectType quantityType, HKUnit unit, bool cumulativeSum, Date anchor,
    StatisticsInterval interval, std::string timeZone,
    std::shared_ptr<const std::vector<SummableSample>> samples, SourcePriority priority)
    : quantityType_(quantityType),
      unit_(unit),
      cumulativeSum_(cumulativeSum),
      anchor_(anchor),
      interval_(interval),
      calendar_(timeZone),
      samples_(std::move(samples)),
      priority_(std::move(priority)) {
  const DateComponents anchorTime = calendar_.components(anchor_);
  anchorDay_ = DateComponents{anchorTime.year, anchorTime.month, anchorTime.day, {}, {}, {}, {}};
}

std::optional<Date> HKStatisticsCollection::intervalStart(std::int64_t index) const {
  if (interval_.days > 0) {
    // The day's first instant: its midnight, read leniently (the day number rolls over into
    // other months, a midnight that the clocks skip lies after the gap).
    DateComponents day = anchorDay_;
    if (!day.day) {
      return std::nullopt;  // the calendar could not place the anchor
    }
    day.day = *day.day + index * interval_.days;
    return calendar_.date(day);
  }
  return anchor_.addingTimeInterval(static_cast<double>(index) * interval_.seconds);
}

HKStatistics HKStatisticsCollection::statisticsBetween(Date start, Date end) const {
  std::optional<HKQuantity> sum;
  if (cumulativeSum_) {
    if (const auto total = CumulativeSum::over(*samples_, start, end, priority_)) {
      sum = HKQuantity(unit_, *total);
    }
  }
  return HKStatistics(quantityType_, start, end, sum);
}

void HKStatisticsCollection::enumerateStatistics(
    Date from, Date to, const std::function<void(const HKStatistics&)>& block) const {
  if (to < from) {
    return;
  }
  // Guess the index of the interval holding `from` from the nominal length, then correct the
  // guess: calendar days are 23 or 25 hours long across clock changes.
  const double nominal =
      interval_.days > 0 ? static_cast<double>(interval_.days) * 86400.0 : interval_.seconds;
  const double guess = std::floor(from.timeIntervalSince(anchor_) / nominal);
  if (!std::isfinite(guess) || std::fabs(guess) > 1e9) {
    return;  // no calendar reaches that far
  }
  auto index = static_cast<std::int64_t>(guess);
  for (auto start = intervalStart(index); start && *start > from; start = intervalStart(index)) {
    --index;
  }
  for (auto next = intervalStart(index + 1); next && *next <= from;
       next = intervalStart(index + 1)) {
    ++index;
  }
  for (;; ++index) {
    const auto start = intervalStart(index);
    const auto end = intervalStart(index + 1);
    if (!start || !end || *start > to) {
      return;
    }
    block(statisticsBetween(*start, *end));
  }
}

HKStatisticsCollectionQuery::HKStatisticsCollectionQuery(
    HKObjectType quantityType, std::optional<NSPredicate> quantitySamplePredicate,
    HKStatisticsOptions options, Date anchorDate, DateComponents intervalComponents)
    : quantityType_(quantityType),
      predicate_(std::move(quantitySamplePredicate)),
      options_(options),
      anchorDate_(anchorDate),
      intervalComponents_(intervalComponents) {
  const auto interval = StatisticsInterval::fromComponents(intervalComponents_);
  if (!interval) {
    fatalError(
        "a statistics collection query needs an interval of whole days or of hours, minutes and "
        "seconds");
  }
  interval_ = *interval;
}

}  // namespace velk::platform
