#include "healthstore/VelkPredicateBuilder.h"

#include "platform/HKSample.h"
#include "velk/Calendar.h"

namespace velk {

std::optional<Date> VelkPredicateBuilder::getDate(Date date, std::int64_t hour, std::int64_t minute,
                                                  std::int64_t second) const {
  const platform::Calendar calendar = platform::Calendar::current();
  const platform::DateComponents day = calendar.components(date);
  platform::DateComponents moment;
  moment.year = day.year;
  moment.month = day.month;
  moment.day = day.day;
  moment.hour = hour;
  moment.minute = minute;
  moment.second = second;
  return calendar.date(moment);
}

std::optional<platform::NSPredicate> VelkPredicateBuilder::getPredicate(Date date,
                                                                        std::int64_t hour,
                                                                        std::int64_t minute,
                                                                        std::int64_t second,
                                                                        double hoursBack) const {
  const Date end = getDate(date, hour, minute, second).value_or(date);
  const Date start = end.addingTimeInterval(-hoursBack * 3600.0);
  auto range = platform::HKQuery::predicateForSamples(start, end, platform::HKQueryOptions::none);
  auto notUserEntered =
      platform::NSPredicate::metadataValueIsNotYes(platform::HKMetadataKeyWasUserEntered);
  return platform::NSCompoundPredicate::andPredicateWithSubpredicates(
      {std::move(range), std::move(notUserEntered)});
}

}  // namespace velk
