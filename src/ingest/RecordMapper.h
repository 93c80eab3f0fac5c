// From the attributes of one `Record` element to the record a batch holds: dates, numbers,
// category names, and the type, unit and source tables of the batch. Both ways of reading a
// part's syntax (the record scanner and pugixml) end here, so what a record means is decided in
// one place: a check of a record's values belongs in RecordMapper::map.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "ingest/ExportRecordBatch.h"
#include "velk/Date.h"
#include "velk/ExportReport.h"
#include "velk/SourceIdentifierRule.h"

namespace velk::ingest {

/// A number as exports write it ("72", "0.5", "1e3"); nothing when it is none or not finite.
std::optional<double> readNumber(std::string_view text);

/// The platform's integer for a biological sex as exports name it ("HKBiologicalSexFemale", or
/// "1" as the first exports wrote it).
std::optional<std::int64_t> biologicalSexNamed(std::string_view text);

/// The attributes of a record that are read, as XML decodes them (escapes replaced); empty
/// when absent.
struct RecordFields {
  std::string_view type, sourceName, sourceVersion, device, unit, startDate, endDate, value;
  /// The first exports named the source `source`; `sourceName` wins where both are written.
  std::string_view legacySource;
  std::string_view average;  ///< statistics records of the first exports, which have no value

  /// Set when one of the attributes above is written twice (not well-formed XML).
  bool repeated = false;

  /// Keeps `value` when `name` is one of the attributes above; a later one wins over an earlier
  /// and sets `repeated`.
  void take(std::string_view name, std::string_view value);
};

/// What became of a record: the record, an issue, or both (a record read with a warning).
/// Neither: a category record that no summary reads, left out because its value is missing or
/// unknown (ExportReport::unreadCategoryRecordsSkipped).
struct MappedRecord {
  std::optional<ExportRecord> record;
  std::optional<ExportIssue> issue;
  std::string_view detail;  ///< for the report: the value at fault, or a short reason
};

class RecordMapper {
 public:
  /// Fills the tables of `batch`. `sources` and the export's own date hold for the whole export.
  RecordMapper(ExportRecordBatch& batch, const SourceIdentifierRule& sources,
               std::optional<Date> exportDate);
  ~RecordMapper();
  RecordMapper(const RecordMapper&) = delete;
  RecordMapper& operator=(const RecordMapper&) = delete;

  /// The record `fields` describe. Its texts are in the batch's tables afterwards.
  MappedRecord map(const RecordFields& fields);

  /// Forbidden characters replaced in the texts of the records mapped so far (written as
  /// references, which the bytes of the file could not show).
  std::uint64_t controlsReplaced() const;

 private:
  class Tables;
  /// Sets the kind and value of `record`, of type and unit `type` and `unit`, from `fields`;
  /// what to return instead when the value cannot be read (skipped, or not read at all).
  std::optional<MappedRecord> setValue(const RecordFields& fields, std::uint32_t type,
                                       std::uint32_t unit, ExportRecord& record);

  ExportRecordBatch& batch_;
  std::optional<Date> exportDate_;
  std::unique_ptr<Tables> tables_;
};

}  // namespace velk::ingest
