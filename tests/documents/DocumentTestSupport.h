// Helpers shared by the document tests: golden files, documents with nothing or everything known,
// and the metadata of the three documents, which differs only in where it sits.
#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/TempDir.h"
#include "velk/BodyDocument.h"
#include "velk/Codable.h"
#include "velk/PhysicalDocument.h"
#include "velk/SleepDocument.h"

namespace velk::testing {

/// The parsed contents of tests/documents/golden/<name>.
inline nlohmann::json readGolden(const std::string& name) {
  std::ifstream in(sourcePath("tests/documents/golden/" + name));
  return nlohmann::json::parse(in, nullptr, /*allow_exceptions=*/false);
}

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

/// Builds a record with every field present and every value distinct, by walking the same key
/// tables that the coding walks: optionals are set, lists hold two elements, numbers count up and
/// every other date carries a fraction of a second. A document filled this way reaches every
/// record type and every key.
class RecordFiller {
 public:
  template <class T>
  T make() {
    T value{};
    fill(value);
    return value;
  }

 private:
  template <class T>
  void fill(T& value) {
    if constexpr (Record<T>) {
      std::apply([&](const auto&... entries) { (fill(value.*(entries.member)), ...); }, T::fields);
    } else if constexpr (coding_detail::IsOptional<T>::value) {
      value.emplace();
      fill(*value);
    } else if constexpr (coding_detail::IsVector<T>::value) {
      value.resize(2);
      fill(value[0]);
      fill(value[1]);
    } else if constexpr (std::is_same_v<T, Date>) {
      // 2024-03-10T00:00:00Z plus one hour per date, and a quarter second on every other one.
      const std::int64_t n = ++counter_;
      const double fraction = n % 2 == 0 ? 0.25 : 0.0;
      value = Date::fromReferenceSeconds(731808000.0 + 3600.0 * static_cast<double>(n) + fraction);
    } else if constexpr (std::is_same_v<T, std::int64_t>) {
      value = ++counter_;
    } else {
      static_assert(std::is_same_v<T, std::string>);
      value = "text " + std::to_string(++counter_);
    }
  }

  std::int64_t counter_ = 0;
};

}  // namespace velk::testing
