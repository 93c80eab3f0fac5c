// The raw body values as the readers left them: a copy of what the body builder holds when a
// document is built.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "body/VelkBodySamples.h"
#include "velk/Date.h"

namespace velk {

struct VelkAppleBodyData {
  std::optional<Date> birthDate;
  std::optional<std::string> biologicalSex;  ///< "female", "male", "other" or "notSet"
  std::optional<std::vector<VelkWeightSample>> weightSamples;  ///< newest first
  std::optional<std::vector<VelkHeightSample>> heightSamples;  ///< newest first

  bool operator==(const VelkAppleBodyData&) const = default;
};

}  // namespace velk
