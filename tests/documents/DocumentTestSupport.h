// Helpers shared by the document tests: golden files, a readable JSON comparison, and the parts of
// the three documents that differ only in where they sit.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "velk/documents/BodyDocument.h"
#include "velk/documents/PhysicalDocument.h"
#include "velk/documents/SleepDocument.h"

namespace velk::testing {

/// The parsed contents of tests/documents/golden/<name>.
nlohmann::json readGolden(const std::string& name);

/// Every place where `actual` differs from `expected`, as key paths with a reason ("missing key",
/// "unexpected key", "expected 1, found 2"); empty when the two are equal. Numbers compare by
/// value, so 86400 and 86400.0 are equal here; tests of the number form compare text instead.
std::vector<std::string> jsonDifferences(const nlohmann::json& expected,
                                         const nlohmann::json& actual);

inline VelkSleepMetadata& metadataOf(VelkSleepData& document) {
  return document.summaries.sleepRelatedData.metadata;
}
inline VelkPhysicalMetadata& metadataOf(VelkPhysicalData& document) {
  return document.summaries.dailyActivityRelatedData.metadata;
}
inline VelkBodyMetadata& metadataOf(VelkBodyData& document) {
  return document.summaries.bodyData.metadata;
}

/// A document as its builder makes it when nothing but the day is known: the metadata says where
/// the data came from and lists one demographic record that knows nothing; every value is absent.
template <class Root>
Root documentWithNothingKnown() {
  Root document;
  auto& metadata = metadataOf(document);
  metadata.datetime = Date::fromReferenceSeconds(731808000.0);  // 2024-03-10T00:00:00Z
  metadata.sourcesOfData = {"Apple Health"};
  metadata.userDemographics = {UserDemographic{}};
  return document;
}

}  // namespace velk::testing
