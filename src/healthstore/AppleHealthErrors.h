// The library's errors about the health store. Each case's message is its raw value, kept to the
// letter (hosts compare and display these texts). As a velk::Error a case has the domain
// "VelkAppleHealth.AppleHealthErrors" and its position in the enumeration as code.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "velk/Error.h"

namespace velk {

enum class AppleHealthErrors {
  healthKitNotavailable,
  collectionHeatlhDataNull,
  sumQuantityNull,
  sampleTypeNotAvailable,
  predicateErrorDate,
  emptySamples,
};

inline constexpr std::string_view kAppleHealthErrorsDomain = "VelkAppleHealth.AppleHealthErrors";

inline constexpr std::array<AppleHealthErrors, 6> kAllAppleHealthErrors = {
    AppleHealthErrors::healthKitNotavailable, AppleHealthErrors::collectionHeatlhDataNull,
    AppleHealthErrors::sumQuantityNull,       AppleHealthErrors::sampleTypeNotAvailable,
    AppleHealthErrors::predicateErrorDate,    AppleHealthErrors::emptySamples,
};

/// The case's message.
std::string_view rawValue(AppleHealthErrors error);

/// The case as an error value (a new error object each time).
Error makeError(AppleHealthErrors error);

/// True when `error` is this case (same domain, code and message), wherever it was made.
bool errorIs(const Error& error, AppleHealthErrors expected);

/// The case that `error` is, if it is one of these.
std::optional<AppleHealthErrors> appleHealthErrorOf(const Error& error);

}  // namespace velk
