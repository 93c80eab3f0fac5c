#include "platform/HKSampleQuery.h"
#include "velk/DebugOutput.h"

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
    fatalError("a sample query's limit cannot be negative (" + std::to_string(limit_) + ")");
  }
}

}  // namespace velk::platform
