#include "physical/VelkHRVSampleProvider.h"

#include <optional>
#include <utility>

#include "physical/DaySampleQuery.h"
#include "physical/QuantityIdentifiers.h"
#include "platform/HKSample.h"
#include "platform/HKUnit.h"

namespace velk {

namespace {

using Samples = std::vector<VelkHRVSample>;

// Milliseconds of the quantity samples in the list; anything else is skipped.
Samples hrvSamples(const platform::HKSampleList& list) {
  const auto milliseconds =
      platform::HKUnit::secondUnitWithMetricPrefix(platform::HKMetricPrefix::milli);
  Samples samples;
  samples.reserve(list.size());
  for (const auto& sample : list) {
    if (const auto quantitySample =
            std::dynamic_pointer_cast<const platform::HKQuantitySample>(sample)) {
      samples.push_back({quantitySample->quantity().doubleValueForUnit(milliseconds),
                         quantitySample->startDate(), quantitySample->endDate()});
    }
  }
  return samples;
}

}  // namespace

VelkHRVSampleProvider::VelkHRVSampleProvider()
    : appleHealthProvider(std::make_shared<AppleHealthProvider>()) {}

void VelkHRVSampleProvider::getHRVSamples(Date date, Completion completion) {
  auto handler = [weakSelf = weak_from_this(), completion](
                     const platform::HKSampleQuery&, std::optional<platform::HKSampleList> list,
                     std::optional<Error> error) {
    if (error) {
      return completion(Result<Samples>::failure(std::move(*error)));
    }
    // A provider released before the answer still completes, with nothing in the list.
    if (list && !weakSelf.expired()) {
      return completion(Result<Samples>::success(hrvSamples(*list)));
    }
    completion(Result<Samples>::success({}));
  };
  if (auto error = physical_detail::requestDaySamples(*appleHealthProvider, predicateBuilder, date,
                                                      physical_detail::kHeartRateVariabilitySDNN,
                                                      std::move(handler))) {
    completion(Result<Samples>::failure(std::move(*error)));
  }
}

}  // namespace velk
