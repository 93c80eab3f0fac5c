#include "physical/VelkHeartRateProvider.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "healthstore/AppleHealthErrors.h"
#include "healthstore/TruncatedInteger.h"
#include "physical/QuantityIdentifiers.h"

namespace velk {

namespace {

using Samples = std::vector<VelkHeartRateSample>;

// The fixed starting points of the day's extremes. They are part of the published results: a day
// whose every sample lies above 1000 bpm reports 1000 as its minimum, and one whose every value is
// negative reports 0 as its maximum.
constexpr double kMaxStart = 0.0;
constexpr double kMinStart = 1000.0;

VelkHeartRateData heartRateStatistics(Samples samples) {
  double max = kMaxStart;
  double min = kMinStart;
  double sum = 0.0;
  for (const auto& sample : samples) {
    max = std::max(sample.value, max);
    min = std::min(sample.value, min);
    sum += sample.value;
  }
  const double avg = sum / static_cast<double>(samples.size());
  return VelkHeartRateData{truncatedInt64(max), truncatedInt64(min), truncatedInt64(avg),
                           std::move(samples)};
}

VelkRestingHrData restingStatistics(Samples samples) {
  double sum = 0.0;
  for (const auto& sample : samples) {
    sum += sample.value;
  }
  const double avg = sum / static_cast<double>(samples.size());
  return VelkRestingHrData{truncatedInt64(avg), std::move(samples)};
}

// Reads the samples of `identifier` and reduces them with `reduce`, while `owner` still exists.
template <class Data, class Reduce>
void readAndReduce(VelkHeartRateProvider& owner, Date date, std::string_view identifier,
                   Reduce reduce, std::function<void(Result<Data>)> completion) {
  owner.velkHrSampleProvider->getHeartRateSamples(
      date, identifier,
      [weakOwner = owner.weak_from_this(), reduce,
       completion = std::move(completion)](Result<Samples> samples) {
        if (weakOwner.expired()) {
          return;  // released before the samples arrived: nothing is reported
        }
        if (samples.isFailure()) {
          return completion(Result<Data>::failure(samples.error()));
        }
        if (samples.value().empty()) {
          return completion(Result<Data>::failure(makeError(AppleHealthErrors::emptySamples)));
        }
        completion(Result<Data>::success(reduce(std::move(samples).value())));
      });
}

}  // namespace

void VelkHeartRateProvider::getHeartRate(
    Date date, std::function<void(Result<VelkHeartRateData>)> completion) {
  readAndReduce<VelkHeartRateData>(*this, date, physical_detail::kHeartRate, heartRateStatistics,
                                   std::move(completion));
}

void VelkHeartRateProvider::getRestingHeartRate(
    Date date, std::function<void(Result<VelkRestingHrData>)> completion) {
  readAndReduce<VelkRestingHrData>(*this, date, physical_detail::kRestingHeartRate,
                                   restingStatistics, std::move(completion));
}

}  // namespace velk
