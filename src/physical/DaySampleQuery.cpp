#include "physical/DaySampleQuery.h"

#include <utility>

#include "healthstore/AppleHealthErrors.h"
#include "physical/QuantityIdentifiers.h"
#include "platform/HKObjectType.h"

namespace velk::physical_detail {

std::optional<Error> requestDaySamples(AppleHealthProvider& provider,
                                       const VelkPredicateBuilder& predicateBuilder, Date date,
                                       std::string_view identifier,
                                       AppleHealthProvider::SamplesCompletion handler) {
  auto sampleType = platform::HKObjectType::quantityTypeForIdentifier(identifier);
  if (!sampleType) {
    return makeError(AppleHealthErrors::sampleTypeNotAvailable);
  }
  auto predicate = predicateBuilder.getPredicate(date, kWindowEndHour, kWindowEndMinute,
                                                 kWindowEndSecond, kWindowHoursBack);
  if (!predicate) {
    return makeError(AppleHealthErrors::predicateErrorDate);
  }
  provider.getSamples(*sampleType, *predicate, std::nullopt, std::move(handler));
  return std::nullopt;
}

}  // namespace velk::physical_detail
