// What a health database holds, as plain values: the records with which store files, exports and
// the import database fill the substitute health store. The store turns them into the platform's
// sample objects (HKQuantitySample, HKCategorySample) when a query answers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "velk/Calendar.h"
#include "velk/Date.h"
#include "velk/Error.h"

namespace velk::platform {

enum class SampleKind : std::uint8_t { quantity, category };

struct SampleRecord {
  std::string type;  ///< type identifier, e.g. "HKQuantityTypeIdentifierStepCount"
  SampleKind kind = SampleKind::quantity;
  double value = 0;  ///< a quantity in `unit`, or a category sample's integer value
  std::string unit;  ///< quantity samples: the unit as written ("kg", "count/min"); else empty
  Date start;
  Date end;
  std::string sourceBundleIdentifier = "com.apple.health";
  std::string sourceName;              ///< the source's display name, where known
  std::optional<bool> wasUserEntered;  ///< metadata HKWasUserEntered; absent: no such key
};

/// The user's characteristics. Each read can fail with a store error instead of answering.
struct Characteristics {
  /// Date of birth as calendar components; components with no fields set denote no date.
  std::variant<DateComponents, Error> dateOfBirth = DateComponents{};
  /// The platform's biological-sex value: 0 not set, 1 female, 2 male, 3 other (others allowed).
  std::variant<std::int64_t, Error> biologicalSex = std::int64_t{0};
};

}  // namespace velk::platform
