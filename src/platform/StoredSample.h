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

/// The largest magnitude of a quantity any sample may have, in its type's canonical unit (its
/// own unit where the type has none). Far above anything measured (a billion steps, meters,
/// kilocalories or beats per minute in one sample), and small enough that the sum of 9.2 billion
/// such samples, more than any file read in one day could hold, still fits a 64-bit integer: no
/// sample that passes can make a day's total or any value the library derives from it overflow.
inline constexpr double kLargestQuantity = 1e9;

/// Whether `value`, recorded in `unit`, is one a measurement can have: finite and at most
/// kLargestQuantity in magnitude once converted into `canonical` (the type's unit, absent when
/// the type has none). `unit` is of `canonical`'s dimension (isStorableQuantityUnit).
bool isPossibleQuantity(double value, HKUnit unit, const std::optional<HKUnit>& canonical);

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
