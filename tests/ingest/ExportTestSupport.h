// Helpers for the export reader tests: a sink that keeps what it receives, and small exports
// written record by record.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "velk/ingest/ExportReader.h"

namespace velk::testing {

class CollectingSink final : public ingest::ExportSink {
 public:
  void characteristics(platform::Characteristics value) override { me = std::move(value); }
  void record(platform::SampleRecord value) override { records.push_back(std::move(value)); }

  std::map<std::string, int> countsByType() const {
    std::map<std::string, int> counts;
    for (const auto& one : records) {
      ++counts[one.type];
    }
    return counts;
  }

  std::optional<platform::Characteristics> me;
  std::vector<platform::SampleRecord> records;
};

/// The DTD-less start of an export up to and including <Me>, one element per line (line 4 is
/// the first line after it).
inline std::string exportHead() {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<HealthData locale=\"en_US\">\n"
         " <ExportDate value=\"2024-03-20 10:00:00 +0100\"/>\n";
}

/// One step-count record line as Apple writes it.
inline std::string stepRecord(int steps, const std::string& start = "2024-03-10 08:30:00 +0100") {
  return " <Record type=\"HKQuantityTypeIdentifierStepCount\" sourceName=\"Anna's iPhone\" "
         "sourceVersion=\"17.3\" unit=\"count\" creationDate=\"" +
         start + "\" startDate=\"" + start + "\" endDate=\"" + start + "\" value=\"" +
         std::to_string(steps) + "\"/>\n";
}

}  // namespace velk::testing
