// One sample as a health database keeps it: compact (texts interned, unit parsed once) so that
// millions fit in memory, and plain, so that a database can copy its query candidates cheaply.
// The health store makes the platform's sample objects (platform/HKSample.h) only for the
// samples that a query finally answers with.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/HKUnit.h"
#include "platform/InternedString.h"
#include "platform/SampleRecord.h"
#include "velk/Date.h"

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

/// Whether a quantity of `type` recorded in `unit` can be held: the text names a unit, of the
/// dimension in which the store keeps the type (steps in kilograms cannot be summed).
bool isStorableQuantityUnit(std::string_view type, std::string_view unit);

/// isStorableQuantityUnit for a stream of records, remembered per type and unit, for readers
/// that check millions of records of a few dozen kinds. Category records always pass.
class StorableRecordCheck {
 public:
  bool accepts(const SampleRecord& record);
  /// The same for a quantity of `type` in `unit`.
  bool acceptsQuantity(std::string_view type, std::string_view unit);

 private:
  std::unordered_map<std::string, bool> known_;  ///< by type, a NUL, and unit
};

}  // namespace velk::platform
