// Helpers for the import tests: an export read straight into memory, to compare an import
// database's answers with, and samples reduced to comparable values.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "ingest/ExportTestSupport.h"
#include "velk/platform/InMemoryHealthDatabase.h"

namespace velk::testing {

/// The in-memory store of the export at `path`, as a store file of the same records would be.
/// Records whose unit names no unit are left out, as the import leaves them out.
inline std::shared_ptr<platform::InMemoryHealthDatabase> readIntoMemory(
    const std::filesystem::path& path) {
  CollectingSink sink;
  const auto report = ingest::ExportReader().read(path, sink);
  if (report.isFailure()) {
    return nullptr;
  }
  std::erase_if(sink.records, [](const platform::SampleRecord& record) {
    return !platform::StoredSample::from(record);
  });
  return std::make_shared<platform::InMemoryHealthDatabase>(
      platform::HealthDatabaseSettings{}, sink.me.value_or(platform::Characteristics{}),
      sink.records);
}

using SampleValues = std::tuple<std::string, std::string, std::string, int, double, std::string,
                                double, double, int>;

/// Everything a sample says, in a form that compares and prints.
inline std::vector<SampleValues> valuesOf(const std::vector<platform::StoredSample>& samples) {
  std::vector<SampleValues> values;
  for (const platform::StoredSample& sample : samples) {
    const platform::SampleRecord record = sample.record();
    values.emplace_back(record.type, record.sourceBundleIdentifier, record.sourceName,
                        static_cast<int>(record.kind), record.value, record.unit,
                        record.start.timeIntervalSinceReferenceDate(),
                        record.end.timeIntervalSinceReferenceDate(),
                        record.wasUserEntered ? (*record.wasUserEntered ? 2 : 1) : 0);
  }
  return values;
}

}  // namespace velk::testing
