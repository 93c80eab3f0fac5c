#include "platform/HKSampleQuery.h"

#include <cstdio>
#include <cstdlib>

namespace velk::platform {

HKSampleQuery::HKSampleQuery(HKObjectType sampleType, std::optional<NSPredicate> predicate,
                             std::int64_t limit, std::vector<NSSortDescriptor> sortDescriptors,
                             ResultsHandler resultsHandler)
    : sampleType_(sampleType),
      predicate_(std::move(predicate)),
      limit_(limit),
      sortDescriptors_(std::move(sortDescriptors)),
      resultsHandler_(std::move(resultsHandler)) {
  if (limit_ < 0) {
    std::fprintf(stderr, "velk: a sample query's limit cannot be negative (%lld)\n",
                 static_cast<long long>(limit_));
    std::abort();
  }
}

}  // namespace velk::platform
