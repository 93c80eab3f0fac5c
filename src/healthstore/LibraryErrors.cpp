// Both error sets of the library: their texts and their bridging to velk::Error.
#include <cstdint>
#include <string>

#include "healthstore/AppleHealthErrors.h"
#include "healthstore/ExtractionErrors.h"

namespace velk {
namespace {

template <class Case>
Error bridge(std::string_view domain, Case value) {
  return Error(std::string(domain), static_cast<std::int64_t>(value), std::string(rawValue(value)));
}

template <class Case>
bool sameCase(const Error& error, std::string_view domain, Case value) {
  return error.domain() == domain && error.code() == static_cast<std::int64_t>(value) &&
         error.message() == rawValue(value);
}

}  // namespace

std::string_view rawValue(AppleHealthErrors error) {
  switch (error) {
    case AppleHealthErrors::healthKitNotavailable:
      return "apple health kit is not avaible un your device";
    case AppleHealthErrors::collectionHeatlhDataNull:
      return "the apple health data is nil";
    case AppleHealthErrors::sumQuantityNull:
      return "The value of the sum queantity is nil";
    case AppleHealthErrors::sampleTypeNotAvailable:
      return "sample type is not available";
    case AppleHealthErrors::predicateErrorDate:
      return "There was a problem building the predicate";
    case AppleHealthErrors::emptySamples:
      return "Any sample was found for the data type";
  }
  return {};
}

Error makeError(AppleHealthErrors error) {
  return bridge(kAppleHealthErrorsDomain, error);
}

bool errorIs(const Error& error, AppleHealthErrors expected) {
  return sameCase(error, kAppleHealthErrorsDomain, expected);
}

std::optional<AppleHealthErrors> appleHealthErrorOf(const Error& error) {
  for (const AppleHealthErrors candidate : kAllAppleHealthErrors) {
    if (errorIs(error, candidate)) {
      return candidate;
    }
  }
  return std::nullopt;
}

std::string_view rawValue(ExtractionErrors error) {
  switch (error) {
    case ExtractionErrors::sleepDataEmpty:
      return "The user does not have sleep data available";
  }
  return {};
}

Error makeError(ExtractionErrors error) {
  return bridge(kExtractionErrorsDomain, error);
}

bool errorIs(const Error& error, ExtractionErrors expected) {
  return sameCase(error, kExtractionErrorsDomain, expected);
}

}  // namespace velk
