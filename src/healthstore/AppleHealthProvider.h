// The one place where the library talks to the health store: sample queries (newest first), and
// the reading of per-day sums from statistics collection queries as whole numbers.
//
// Every component that reads health data builds its own provider, and so its own store object.
// Completions run on the store's callback queue, never on the caller's thread. Store errors pass
// through unchanged (the very same error object); the provider raises collectionHeatlhDataNull
// and sumQuantityNull only.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/HKHealthStore.h"
#include "platform/HKObjectType.h"
#include "platform/HKSampleQuery.h"
#include "platform/HKStatistics.h"
#include "platform/HKStatisticsCollectionQuery.h"
#include "platform/HKUnit.h"
#include "platform/NSPredicate.h"
#include "velk/Date.h"
#include "velk/Error.h"
#include "velk/Result.h"

namespace velk {

class AppleHealthProvider {
 public:
  /// The store's raw answer to a sample query: the query, the samples (absent when the store gave
  /// no list) and the store's error.
  using SamplesCompletion = std::function<void(const platform::HKSampleQuery& query,
                                               std::optional<platform::HKSampleList> samples,
                                               std::optional<Error> error)>;
  using SumCompletion = std::function<void(Result<std::int64_t>)>;

  /// Makes its store with the plain constructor (the installed device's health database).
  AppleHealthProvider();

  /// Runs one sample query on `sampleType`, sorted by start date, newest first. An absent limit
  /// means no limit.
  void getSamples(const platform::HKObjectType& sampleType, const platform::NSPredicate& predicate,
                  std::optional<std::int64_t> limit, SamplesCompletion completion) const;

  /// The initial results handler of a statistics collection query: fails with the store's error,
  /// or collectionHeatlhDataNull when there is no collection; else calls getSumQuantity for every
  /// interval of the collection from `startDate` to `endDate` (so `completion` runs once per
  /// interval).
  void getCollectionSum(const platform::HKStatisticsCollectionQuery& query,
                        const std::optional<platform::HKStatisticsCollection>& collection,
                        const std::optional<Error>& error, Date startDate, Date endDate,
                        platform::HKUnit unit, const SumCompletion& completion) const;

  /// The interval's sum in `unit`, truncated toward zero; sumQuantityNull when it has none. A sum
  /// that is not finite or does not fit in 64 bits stops the process.
  void getSumQuantity(const platform::HKStatistics& statistics, platform::HKUnit unit,
                      const SumCompletion& completion) const;

  const std::shared_ptr<platform::HKHealthStore> healthStore;
};

}  // namespace velk
