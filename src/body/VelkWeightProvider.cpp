#include "body/VelkWeightProvider.h"

#include <utility>

#include "body/NewestMeasurements.h"
#include "platform/HKUnit.h"

namespace velk {

void VelkWeightProvider::getWeight(Date date, Completion completion) const {
  body_detail::readNewestMeasurements(
      appleHealthProvider, "HKQuantityTypeIdentifierBodyMass", date, weak_from_this(),
      [completion = std::move(completion)](Result<QuantitySampleList> samples) {
        if (samples.isFailure()) {
          completion(Result<std::vector<VelkWeightSample>>::failure(samples.error()));
          return;
        }
        completion(Result<std::vector<VelkWeightSample>>::success(makeWeightSamples(
            samples.value(),
            platform::HKUnit::gramUnitWithMetricPrefix(platform::HKMetricPrefix::kilo))));
      });
}

}  // namespace velk
