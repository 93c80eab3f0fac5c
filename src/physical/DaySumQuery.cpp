#include "physical/DaySumQuery.h"

#include <optional>
#include <utility>

#include "healthstore/AppleHealthErrors.h"
#include "physical/QuantityIdentifiers.h"
#include "platform/HKObjectType.h"
#include "platform/HKStatisticsCollectionQuery.h"
#include "velk/Calendar.h"

namespace velk::physical_detail {

void requestDaySum(std::shared_ptr<AppleHealthProvider> provider,
                   const VelkPredicateBuilder& predicateBuilder, Date date,
                   std::string_view identifier, platform::HKUnit unit,
                   DaySumCompletion completion) {
  using platform::HKObjectType;
  const auto fail = [&completion](AppleHealthErrors error) {
    completion(Result<std::int64_t>::failure(makeError(error)));
  };

  const std::optional<HKObjectType> quantityType =
      HKObjectType::quantityTypeForIdentifier(identifier);
  if (!quantityType) {
    return fail(AppleHealthErrors::sampleTypeNotAvailable);
  }

  // The statistics span the whole day, 00:00:00 to 23:59:59, while the predicate starts at
  // 00:05:59: samples lying wholly in the day's first minutes are not counted.
  const std::optional<Date> startDate = predicateBuilder.getDate(date, 0, 0, 0);
  const std::optional<Date> endDate =
      predicateBuilder.getDate(date, kWindowEndHour, kWindowEndMinute, kWindowEndSecond);
  if (!startDate || !endDate) {
    return fail(AppleHealthErrors::predicateErrorDate);
  }
  auto predicate = predicateBuilder.getPredicate(date, kWindowEndHour, kWindowEndMinute,
                                                 kWindowEndSecond, kWindowHoursBack);
  if (!predicate) {
    return fail(AppleHealthErrors::predicateErrorDate);
  }
  const std::optional<Date> anchorDate = platform::Calendar::current().dateBySettingHour(0, date);
  if (!anchorDate) {
    return fail(AppleHealthErrors::predicateErrorDate);
  }
  platform::DateComponents oneDay;
  oneDay.day = 1;

  platform::HKStatisticsCollectionQuery query(*quantityType, std::move(predicate),
                                              platform::HKStatisticsOptions::cumulativeSum,
                                              *anchorDate, oneDay);
  query.initialResultsHandler = [provider, start = *startDate, end = *endDate, unit,
                                 completion = std::move(completion)](
                                    const platform::HKStatisticsCollectionQuery& finished,
                                    std::optional<platform::HKStatisticsCollection> collection,
                                    std::optional<Error> error) {
    // The collection enumerates synchronously, so every interval has answered when
    // getCollectionSum returns. The store's one-day intervals are calendar days: one interval,
    // the day's sum truncated once. The completion runs exactly once all the same, since a
    // caller that joins reads with a dispatch group leaves the group in it: of several
    // intervals only the first is handed on, and none means the day has no sum.
    std::optional<Result<std::int64_t>> daySum;
    provider->getCollectionSum(finished, std::move(collection), std::move(error), start, end, unit,
                               [&daySum](Result<std::int64_t> answer) {
                                 if (!daySum) {
                                   daySum = std::move(answer);
                                 }
                               });
    completion(daySum
                   ? std::move(*daySum)
                   : Result<std::int64_t>::failure(makeError(AppleHealthErrors::sumQuantityNull)));
  };
  provider->healthStore->executeQuery(std::move(query));
}

}  // namespace velk::physical_detail
