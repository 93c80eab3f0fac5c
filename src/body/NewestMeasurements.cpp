#include "body/NewestMeasurements.h"

#include <optional>
#include <utility>

#include "healthstore/AppleHealthErrors.h"
#include "platform/HKObjectType.h"
#include "platform/NSPredicate.h"

namespace velk::body_detail {

void readNewestMeasurements(const AppleHealthProvider& provider, std::string_view typeIdentifier,
                            Date date, std::weak_ptr<const void> reader,
                            MeasurementsCompletion completion) {
  const auto type = platform::HKObjectType::quantityTypeForIdentifier(typeIdentifier);
  if (!type.has_value()) {
    completion(
        Result<QuantitySampleList>::failure(makeError(AppleHealthErrors::sampleTypeNotAvailable)));
    return;
  }
  // Everything up to the requested moment, with no start and no user-entered exclusion: the body
  // summary reports the latest measurement whenever and however it was taken.
  auto predicate = platform::HKQuery::predicateForSamples(std::nullopt, date);
  provider.getSamples(
      *type, std::move(predicate), bodySummaryQueryLimit,
      [reader = std::move(reader), completion = std::move(completion)](
          const platform::HKSampleQuery&, std::optional<platform::HKSampleList> samples,
          std::optional<Error> error) {
        if (reader.expired()) {
          return;
        }
        if (error.has_value()) {
          completion(Result<QuantitySampleList>::failure(std::move(*error)));
          return;
        }
        completion(Result<QuantitySampleList>::success(
            asQuantitySamples(samples).value_or(QuantitySampleList{})));
      });
}

}  // namespace velk::body_detail
