#include "body/VelkHeightProvider.h"

#include <utility>

#include "body/NewestMeasurements.h"
#include "platform/HKUnit.h"

namespace velk {

void VelkHeightProvider::getHeight(Date date, Completion completion) const {
  body_detail::readNewestMeasurements(
      appleHealthProvider, "HKQuantityTypeIdentifierHeight", date, weak_from_this(),
      [completion = std::move(completion)](Result<QuantitySampleList> samples) {
        if (samples.isFailure()) {
          completion(Result<std::vector<VelkHeightSample>>::failure(samples.error()));
          return;
        }
        completion(Result<std::vector<VelkHeightSample>>::success(makeHeightSamples(
            samples.value(),
            platform::HKUnit::meterUnitWithMetricPrefix(platform::HKMetricPrefix::centi))));
      });
}

}  // namespace velk
