// The library's errors about extraction. The set is published although the library raises none of
// its cases today. As a velk::Error a case has the domain "VelkAppleHealth.ExtractionErrors" and
// its position as code; the message is the raw value.
#pragma once

#include <array>
#include <string_view>

#include "velk/Error.h"

namespace velk {

enum class ExtractionErrors {
  sleepDataEmpty,
};

inline constexpr std::string_view kExtractionErrorsDomain = "VelkAppleHealth.ExtractionErrors";

inline constexpr std::array<ExtractionErrors, 1> kAllExtractionErrors = {
    ExtractionErrors::sleepDataEmpty};

std::string_view rawValue(ExtractionErrors error);
Error makeError(ExtractionErrors error);
bool errorIs(const Error& error, ExtractionErrors expected);

}  // namespace velk
