#include "physical/VelkHearRateSampleProvider.h"

#include <optional>
#include <utility>

#include "physical/DaySampleQuery.h"
#include "platform/HKSample.h"
#include "platform/HKUnit.h"

namespace velk {

namespace {

using Samples = std::vector<VelkHeartRateSample>;

// Beats per minute, if the list as a whole is quantity samples; a list with anything else in it,
// or no list, is an empty list: not an error.
Samples heartRateSamples(const std::optional<platform::HKSampleList>& list) {
  Samples samples;
  const auto quantities =
      list ? platform::samplesOfClass<platform::HKQuantitySample>(*list) : std::nullopt;
  if (!quantities) {
    return samples;
  }
  const auto beatsPerMinute =
      platform::HKUnit::countUnit().unitDividedByUnit(platform::HKUnit::minuteUnit());
  samples.reserve(quantities->size());
  for (const auto& sample : *quantities) {
    samples.push_back({sample->quantity().doubleValueForUnit(beatsPerMinute), sample->startDate(),
                       sample->endDate()});
  }
  return samples;
}

}  // namespace

VelkHearRateSampleProvider::VelkHearRateSampleProvider()
    : appleHelathKitProvider(std::make_shared<AppleHealthProvider>()) {}

void VelkHearRateSampleProvider::getHeartRateSamples(Date date, std::string_view identifier,
                                                     Completion completion) {
  auto handler = [weakSelf = weak_from_this(), completion](
                     const platform::HKSampleQuery&, std::optional<platform::HKSampleList> list,
                     std::optional<Error> error) {
    if (weakSelf.expired()) {
      return;  // released before the store answered: the answer is dropped
    }
    if (error) {
      return completion(Result<Samples>::failure(std::move(*error)));
    }
    completion(Result<Samples>::success(heartRateSamples(list)));
  };
  if (auto error = physical_detail::requestDaySamples(*appleHelathKitProvider, predicateBuilder,
                                                      date, identifier, std::move(handler))) {
    completion(Result<Samples>::failure(std::move(*error)));
  }
}

}  // namespace velk
