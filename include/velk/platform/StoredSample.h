// One sample as a health database keeps it: compact (texts interned, unit parsed once) so that
// millions fit in memory, and plain, so that a database can copy its query candidates cheaply.
// The health store makes the platform's sample objects (velk/platform/HKSample.h) only for the
// samples that a query finally answers with.
#pragma once

#include <optional>

#include "velk/platform/Date.h"
#include "velk/platform/HKUnit.h"
#include "velk/platform/InternedString.h"
#include "velk/platform/SampleRecord.h"

namespace velk::platform {

struct StoredSample {
  InternedString type;
  InternedString sourceBundleIdentifier;
  InternedString sourceName;
  std::optional<HKUnit> unit;  ///< quantity samples only
  double value = 0;
  Date start;
  Date end;
  SampleKind kind = SampleKind::quantity;
  std::optional<bool> wasUserEntered;

  /// The compact form of `record`. Absent when a quantity record's unit is not a unit, or is one
  /// of another dimension than the store keeps its type in (steps in kilograms).
  static std::optional<StoredSample> from(const SampleRecord& record);

  SampleRecord record() const;
};

}  // namespace velk::platform
