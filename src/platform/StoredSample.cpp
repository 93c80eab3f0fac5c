#include "velk/platform/StoredSample.h"

#include "velk/platform/CanonicalUnits.h"

namespace velk::platform {

std::optional<StoredSample> StoredSample::from(const SampleRecord& record) {
  StoredSample sample;
  sample.type = InternedString(record.type);
  sample.sourceBundleIdentifier = InternedString(record.sourceBundleIdentifier);
  sample.sourceName = InternedString(record.sourceName);
  if (record.kind == SampleKind::quantity) {
    sample.unit = HKUnit::unitFromString(record.unit);
    if (!sample.unit) {
      return std::nullopt;
    }
    // A quantity the store keeps in another dimension (steps in kilograms) could never be summed
    // or converted: converting it would stop the process, so the store does not hold it.
    const auto canonical = canonicalUnitForQuantityType(record.type);
    if (canonical && !sample.unit->isCompatible(*canonical)) {
      return std::nullopt;
    }
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
