#include "sleep/SleepSampleProvider.h"

#include <utility>

#include "healthstore/AppleHealthErrors.h"
#include "platform/HKObjectType.h"

namespace velk {

namespace {

constexpr const char* kSleepAnalysisIdentifier = "HKCategoryTypeIdentifierSleepAnalysis";

// The night ends at noon of the requested day and starts exactly 24 hours earlier: on a day on
// which the clocks change, that is 23 or 25 wall-clock hours back, not noon of the previous day.
constexpr std::int64_t kNightEndHour = 12;
constexpr double kNightHours = 24.0;

}  // namespace

SleepSampleProvider::SleepSampleProvider()
    : appleHealthPrivider(std::make_unique<AppleHealthProvider>()),
      predicateBuilder(std::make_unique<VelkPredicateBuilder>()) {}

void SleepSampleProvider::getSleepSamples(Date date, Completion completion) {
  const std::optional<platform::HKObjectType> sleepType =
      platform::HKObjectType::categoryTypeForIdentifier(kSleepAnalysisIdentifier);
  if (!sleepType || !sleepType->isSampleType()) {
    completion(Result<std::optional<Samples>>::failure(
        makeError(AppleHealthErrors::sampleTypeNotAvailable)));
    return;
  }
  const std::optional<platform::NSPredicate> predicate =
      predicateBuilder->getPredicate(date, kNightEndHour, 0, 0, kNightHours);
  if (!predicate) {
    completion(
        Result<std::optional<Samples>>::failure(makeError(AppleHealthErrors::predicateErrorDate)));
    return;
  }
  // The continuation captures only the completion: the provider may be gone when the store
  // answers, and whoever owns it decides then whether the answer still matters.
  appleHealthPrivider->getSamples(
      *sleepType, *predicate, std::nullopt,
      [completion = std::move(completion)](const platform::HKSampleQuery&,
                                           std::optional<platform::HKSampleList> samples,
                                           std::optional<Error> error) {
        if (error) {
          completion(Result<std::optional<Samples>>::failure(std::move(*error)));
          return;
        }
        completion(Result<std::optional<Samples>>::success(
            samples ? platform::samplesOfClass<platform::HKCategorySample>(*samples)
                    : std::nullopt));
      });
}

}  // namespace velk
