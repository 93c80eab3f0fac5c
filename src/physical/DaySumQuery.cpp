#include "physical/DaySumQuery.h"

#include <optional>
#include <utility>
#include <vector>

#include "healthstore/AppleHealthErrors.h"
#include "physical/CheckedSum.h"
#include "physical/QuantityIdentifiers.h"
#include "platform/HKObjectType.h"
#include "platform/HKStatisticsCollectionQuery.h"
#include "velk/Calendar.h"

namespace velk::physical_detail {

namespace {

// The collection reports one sum per interval that it yields between the day's first and last
// second. With the anchor at a midnight that is one interval. But the anchor is "`date` with its
// hour set to 0", and for a `date` between 00:00 and 00:59 that is `date` itself (say 00:30): the
// intervals then run from 00:30 to 00:30 and two of them meet the day. Handing on each answer
// would call the completion twice, and a caller that joins reads with a dispatch group would leave
// it twice. So the answers are gathered and handed on once: a single answer as it is (the same
// error object included), several as the sum of those that have one. A piece of the day without
// samples adds nothing; only when no piece has a sum does the day fail with that piece's error.
// No interval at all (a store that yields none) reads as a day without samples.
Result<std::int64_t> combineIntervalSums(std::vector<Result<std::int64_t>> answers) {
  if (answers.empty()) {
    return Result<std::int64_t>::failure(makeError(AppleHealthErrors::sumQuantityNull));
  }
  if (answers.size() == 1) {
    return std::move(answers.front());
  }
  std::optional<std::int64_t> total;
  for (const auto& answer : answers) {
    if (answer.isSuccess()) {
      total = checkedSum(total.value_or(0), answer.value(), "the day's sum");
    }
  }
  if (!total) {
    return std::move(answers.front());
  }
  return Result<std::int64_t>::success(*total);
}

}  // namespace

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
  query.initialResultsHandler =
      [provider, start = *startDate, end = *endDate, unit, completion = std::move(completion)](
          const platform::HKStatisticsCollectionQuery& finished,
          std::optional<platform::HKStatisticsCollection> collection, std::optional<Error> error) {
        // The collection enumerates synchronously, so every interval has answered when
        // getCollectionSum returns.
        std::vector<Result<std::int64_t>> answers;
        provider->getCollectionSum(
            finished, std::move(collection), std::move(error), start, end, unit,
            [&answers](Result<std::int64_t> answer) { answers.push_back(std::move(answer)); });
        completion(combineIntervalSums(std::move(answers)));
      };
  provider->healthStore->executeQuery(std::move(query));
}

}  // namespace velk::physical_detail
