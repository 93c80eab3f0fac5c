// The records of one part of an export, as the reader hands them to its sink. A part holds
// thousands of records of a few types and sources, so each distinct type, unit and source is
// written once in the batch's tables and the records refer to them by index: no record owns a
// string, and a sink that stores ids (the import database) looks each text up once per batch.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/SampleRecord.h"
#include "velk/Date.h"

namespace velk::ingest {

struct ExportRecordSource {
  std::string bundleIdentifier;  ///< as the source identifier rule gives it
  std::string name;              ///< the display name, as written in the export
};

struct ExportRecord {
  Date start;
  Date end;
  double value = 0;          ///< a quantity in its unit, or a category sample's integer value
  std::uint32_t type = 0;    ///< index in ExportRecordBatch::types
  std::uint32_t unit = 0;    ///< index in ExportRecordBatch::units; 0 is no unit (categories)
  std::uint32_t source = 0;  ///< index in ExportRecordBatch::sources
  platform::SampleKind kind = platform::SampleKind::quantity;
  std::optional<bool> wasUserEntered;  ///< metadata HKWasUserEntered; absent: no such key
};

struct ExportRecordBatch {
  std::vector<std::string> types;  ///< type identifiers
  std::vector<std::string> units = {std::string()};
  std::vector<ExportRecordSource> sources;
  std::vector<ExportRecord> records;  ///< in file order

  bool empty() const { return records.empty(); }

  /// The record with its texts, as the store holds it.
  platform::SampleRecord sampleRecord(const ExportRecord& record) const;
};

}  // namespace velk::ingest
