// Imports a health export into an import database (ImportedHealthDatabase).
//
// The export is streamed through the export reader into a new database file of this import's
// own beside the target ("<target>.importing-<random>"), which then takes the target's place in
// one rename. An import that fails or is interrupted leaves the previous database as it was (a
// killed import's file is removed by the next import of that target); importing again replaces
// the whole content. Imports of one target at the same time do not disturb each other: each
// that succeeds installs its own database, and the one that finishes last stays. Damage inside the
// export that still lets it be read arrives as warnings in the summary's report, exactly as the
// reader found it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "velk/Date.h"
#include "velk/ExportReport.h"
#include "velk/Result.h"
#include "velk/SourceIdentifierRule.h"

namespace velk::ingest {

struct ImportOptions {
  /// How each record's source gets the bundle identifier that the sleep summary filters on.
  SourceIdentifierRule sources;
  /// Asked before each read from the export (possibly from several threads at once) and once more
  /// before the new database takes the old one's place; when it answers true the import stops
  /// and fails (velk.ingest.export, code 7) as any failed import does, leaving the previous
  /// database as it was. Empty: the import runs to its end.
  std::function<bool()> stopRequested;
};

/// How far an import has come, for a progress display.
struct ImportProgress {
  std::uint64_t bytesRead = 0;   ///< bytes of export XML read so far
  std::uint64_t totalBytes = 0;  ///< the XML's size when known beforehand, else 0
  std::uint64_t records = 0;     ///< sample records stored so far
  bool finished = false;         ///< the last report, once everything is stored
};

/// Called on the importing thread, after each part of the export is stored.
using ImportProgressHandler = std::function<void(const ImportProgress&)>;

struct ImportSummary {
  ExportReport report;
  std::string exportDescription;  ///< the file (and archive entry) that was read
  std::uint64_t samplesStored = 0;
  /// Quantity records whose unit names no unit: no query could convert them, so they are not
  /// stored (a warning for the user).
  std::uint64_t samplesWithoutUnit = 0;
  std::uint64_t xmlBytes = 0;
  bool characteristicsFound = false;
  /// The earliest start and the latest end of the stored samples: the days an import has data
  /// for. Both absent when no sample was stored.
  std::optional<Date> earliestSampleStart;
  std::optional<Date> latestSampleEnd;
};

/// Reads the export at `exportPath` (export.zip or its XML) into a database at `databasePath`,
/// replacing any database there only when the import has succeeded.
Result<ImportSummary> importExport(const std::filesystem::path& exportPath,
                                   const std::filesystem::path& databasePath,
                                   const ImportOptions& options = {},
                                   const ImportProgressHandler& progress = {});

}  // namespace velk::ingest
