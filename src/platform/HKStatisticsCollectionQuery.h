// A statistics collection query: per-interval statistics of the quantity samples that match a
// predicate. Set initialResultsHandler, then hand the query to HKHealthStore::executeQuery; the
// handler runs once, on the store's callback queue.
#pragma once

#include <functional>
#include <optional>

#include "platform/HKObjectType.h"
#include "platform/HKStatistics.h"
#include "platform/NSPredicate.h"
#include "velk/Calendar.h"
#include "velk/Error.h"

namespace velk::platform {

/// The platform's statistics options (a bit set); this store computes cumulativeSum.
enum class HKStatisticsOptions : unsigned {
  none = 0,
  separateBySource = 1,
  discreteAverage = 2,
  discreteMin = 4,
  discreteMax = 8,
  cumulativeSum = 16,
};

class HKStatisticsCollectionQuery {
 public:
  using InitialResultsHandler = std::function<void(const HKStatisticsCollectionQuery& query,
                                                   std::optional<HKStatisticsCollection> collection,
                                                   std::optional<Error> error)>;

  /// An interval this store cannot step by (see StatisticsInterval) is a programming error and
  /// stops the process.
  HKStatisticsCollectionQuery(HKObjectType quantityType,
                              std::optional<NSPredicate> quantitySamplePredicate,
                              HKStatisticsOptions options, Date anchorDate,
                              DateComponents intervalComponents);

  InitialResultsHandler initialResultsHandler;

  const HKObjectType& quantityType() const { return quantityType_; }
  const std::optional<NSPredicate>& predicate() const { return predicate_; }
  HKStatisticsOptions options() const { return options_; }
  Date anchorDate() const { return anchorDate_; }
  const DateComponents& intervalComponents() const { return intervalComponents_; }
  StatisticsInterval interval() const { return interval_; }

 private:
  HKObjectType quantityType_;
  std::optional<NSPredicate> predicate_;
  HKStatisticsOptions options_;
  Date anchorDate_;
  DateComponents intervalComponents_;
  StatisticsInterval interval_;
};

}  // namespace velk::platform
