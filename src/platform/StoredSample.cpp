#include "platform/StoredSample.h"

#include "platform/CanonicalUnits.h"

namespace velk::platform {

bool isStorableQuantityUnit(std::string_view type, std::string_view unit) {
  const auto parsed = HKUnit::unitFromString(unit);
  if (!parsed) {
    return false;
  }
  // A quantity the store keeps in another dimension could never be summed or converted:
  // converting it would stop the process, so the store does not hold it.
  const auto canonical = canonicalUnitForQuantityType(type);
  return !canonical || parsed->isCompatible(*canonical);
}

bool StorableRecordCheck::accepts(const SampleRecord& record) {
  return record.kind != SampleKind::quantity || acceptsQuantity(record.type, record.unit);
}

bool StorableRecordCheck::acceptsQuantity(std::string_view type, std::string_view unit) {
  std::string key(type);
  key.push_back('\0');
  key += unit;
  const auto [entry, added] = known_.try_emplace(std::move(key), false);
  if (added) {
    entry->second = isStorableQuantityUnit(type, unit);
  }
  return entry->second;
}

std::optional<StoredSample> StoredSample::from(const SampleRecord& record) {
  StoredSample sample;
  sample.type = InternedString(record.type);
  sample.sourceBundleIdentifier = InternedString(record.sourceBundleIdentifier);
  sample.sourceName = InternedString(record.sourceName);
  if (record.kind == SampleKind::quantity) {
    if (!isStorableQuantityUnit(record.type, record.unit)) {
      return std::nullopt;
    }
    sample.unit = HKUnit::unitFromString(record.unit);
  }
  sample.value = record.value;
  sample.start = record.start;
  sample.end = record.end;
  sample.kind = record.kind;
  sample.wasUserEntered = record.wasUserEntered;
  return sample;
}

SampleRecord StoredSample::record() const {
  SampleRecord record;
  record.type = type.str();
  record.kind = kind;
  record.value = value;
  record.unit = unit ? unit->unitString() : std::string();
  record.start = start;
  record.end = end;
  record.sourceBundleIdentifier = sourceBundleIdentifier.str();
  record.sourceName = sourceName.str();
  record.wasUserEntered = wasUserEntered;
  return record;
}

}  // namespace velk::platform
