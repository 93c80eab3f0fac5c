// Reads the user's biological sex, a health-store characteristic, synchronously, as a word.
#pragma once

#include <cstdint>
#include <string>

#include "healthstore/AppleHealthProvider.h"
#include "velk/Result.h"

namespace velk {

class VelkBiologicalSexProvider {
 public:
  VelkBiologicalSexProvider() = default;

  /// "female", "male", "other" or "notSet" (also for values the platform may add later); or the
  /// store's error as it came. Runs on the caller's thread.
  Result<std::string> getBiologicalSex() const;

  /// The word for one of the platform's biological-sex values.
  static std::string word(std::int64_t biologicalSex);

 private:
  AppleHealthProvider appleHealthProvider;
};

}  // namespace velk
