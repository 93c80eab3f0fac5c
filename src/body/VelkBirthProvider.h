// Reads the user's date of birth, a health-store characteristic, synchronously.
#pragma once

#include <optional>

#include "healthstore/AppleHealthProvider.h"
#include "velk/Date.h"
#include "velk/Result.h"

namespace velk {

class VelkBirthProvider {
 public:
  VelkBirthProvider() = default;

  /// The moment of the date of birth (its day at midnight in the device's calendar), absent when
  /// the user has entered none; or the store's error as it came (not authorised, store failure).
  /// Runs on the caller's thread.
  Result<std::optional<Date>> getBirthDate() const;

 private:
  AppleHealthProvider appleHealthProvider;
};

}  // namespace velk
