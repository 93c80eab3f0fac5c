#include "healthstore/AppleHealthProvider.h"

#include "healthstore/AppleHealthErrors.h"
#include "healthstore/TruncatedInteger.h"

namespace velk {

using platform::HKSampleQuery;

AppleHealthProvider::AppleHealthProvider()
    : healthStore(std::make_shared<platform::HKHealthStore>()) {}

void AppleHealthProvider::getSamples(const platform::HKObjectType& sampleType,
                                     const platform::NSPredicate& predicate,
                                     std::optional<std::int64_t> limit,
                                     SamplesCompletion completion) const {
  const platform::NSSortDescriptor newestFirst{platform::HKSampleSortIdentifierStartDate, false};
  HKSampleQuery query(
      sampleType, predicate, limit.value_or(platform::HKObjectQueryNoLimit), {newestFirst},
      [completion = std::move(completion)](const HKSampleQuery& answered,
                                           std::optional<platform::HKSampleList> samples,
                                           std::optional<Error> error) {
        completion(answered, std::move(samples), std::move(error));
      });
  healthStore->executeQuery(std::move(query));
}

void AppleHealthProvider::getCollectionSum(
    const platform::HKStatisticsCollectionQuery& query,
    const std::optional<platform::HKStatisticsCollection>& collection,
    const std::optional<Error>& error, Date startDate, Date endDate, platform::HKUnit unit,
    const SumCompletion& completion) const {
  (void)query;
  if (error) {
    completion(Result<std::int64_t>::failure(*error));
    return;
  }
  if (!collection) {
    completion(
        Result<std::int64_t>::failure(makeError(AppleHealthErrors::collectionHeatlhDataNull)));
    return;
  }
  collection->enumerateStatistics(startDate, endDate,
                                  [this, unit, &completion](const platform::HKStatistics& stats) {
                                    getSumQuantity(stats, unit, completion);
                                  });
}

void AppleHealthProvider::getSumQuantity(const platform::HKStatistics& statistics,
                                         platform::HKUnit unit,
                                         const SumCompletion& completion) const {
  const auto& sum = statistics.sumQuantity();
  if (!sum) {
    completion(Result<std::int64_t>::failure(makeError(AppleHealthErrors::sumQuantityNull)));
    return;
  }
  completion(Result<std::int64_t>::success(truncatedInt64(sum->doubleValueForUnit(unit))));
}

}  // namespace velk
