// A sample query: the samples of one type that match a predicate, in the order of the sort
// descriptors, at most `limit` of them (0, HKObjectQueryNoLimit, means all). Hand it to
// HKHealthStore::executeQuery; the results handler runs once, on the store's callback queue.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/HKObjectType.h"
#include "platform/HKSample.h"
#include "platform/NSPredicate.h"
#include "velk/Error.h"

namespace velk::platform {

inline constexpr std::int64_t HKObjectQueryNoLimit = 0;
inline constexpr const char* HKSampleSortIdentifierStartDate = "startDate";
inline constexpr const char* HKSampleSortIdentifierEndDate = "endDate";

struct NSSortDescriptor {
  std::string key;  ///< HKSampleSortIdentifierStartDate or HKSampleSortIdentifierEndDate
  bool ascending = true;
};

class HKSampleQuery {
 public:
  using ResultsHandler = std::function<void(
      const HKSampleQuery& query, std::optional<HKSampleList> samples, std::optional<Error> error)>;

  /// A negative limit is a programming error and stops the process.
  HKSampleQuery(HKObjectType sampleType, std::optional<NSPredicate> predicate, std::int64_t limit,
                std::vector<NSSortDescriptor> sortDescriptors, ResultsHandler resultsHandler);

  const HKObjectType& sampleType() const { return sampleType_; }
  const std::optional<NSPredicate>& predicate() const { return predicate_; }
  std::int64_t limit() const { return limit_; }
  const std::vector<NSSortDescriptor>& sortDescriptors() const { return sortDescriptors_; }
  const ResultsHandler& resultsHandler() const { return resultsHandler_; }

 private:
  HKObjectType sampleType_;
  std::optional<NSPredicate> predicate_;
  std::int64_t limit_;
  std::vector<NSSortDescriptor> sortDescriptors_;
  ResultsHandler resultsHandler_;
};

}  // namespace velk::platform
