// The errors with which reading an export fails as a whole. Damage inside an export that still
// lets the rest be read is not an error but a warning in the ExportReport.
#pragma once

#include <cstdint>
#include <string>

#include "velk/Error.h"

namespace velk::ingest {

inline constexpr const char* kExportErrorDomain = "velk.ingest.export";

enum class ExportErrorCode : std::int64_t {
  cannotOpen = 1,            ///< the file cannot be opened or read
  notAnExport = 2,           ///< the file is no health export (no HealthData root element)
  noExportInArchive = 3,     ///< a zip archive without an export XML inside
  readFailed = 4,            ///< reading or decompressing failed part way
  invalidSourceMapping = 5,  ///< the source mapping file is not a JSON object of strings
  archiveTooLarge = 6,       ///< the export inside an archive unpacks beyond ArchiveLimits
  stopped = 7,               ///< the host asked the import to stop (ImportOptions::stopRequested)
  severalExportsInArchive = 8,  ///< a zip archive with more than one export XML inside
};

inline Error exportError(ExportErrorCode code, std::string message) {
  return Error(kExportErrorDomain, static_cast<std::int64_t>(code), std::move(message));
}

}  // namespace velk::ingest
