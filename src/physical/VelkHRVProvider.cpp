#include "physical/VelkHRVProvider.h"

#include <utility>
#include <vector>

#include "healthstore/AppleHealthErrors.h"

namespace velk {

void VelkHRVProvider::getHRV(Date date, std::function<void(Result<VelkHRVData>)> completion) {
  hrvSampleProvider->getHRVSamples(date, [weakSelf = weak_from_this(),
                                          completion = std::move(completion)](
                                             Result<std::vector<VelkHRVSample>> samples) {
    if (weakSelf.expired()) {
      return;  // released before the samples arrived: nothing is reported
    }
    if (samples.isFailure()) {
      return completion(Result<VelkHRVData>::failure(samples.error()));
    }
    if (samples.value().empty()) {
      return completion(Result<VelkHRVData>::failure(makeError(AppleHealthErrors::emptySamples)));
    }
    double sum = 0.0;
    for (const auto& sample : samples.value()) {
      sum += sample.value;
    }
    const double avg = sum / static_cast<double>(samples.value().size());
    // Kept unrounded: the document truncates it when it is built.
    completion(Result<VelkHRVData>::success({std::move(samples).value(), avg}));
  });
}

}  // namespace velk
