// Reads a health export (export.zip or its XML) into sample records and characteristics.
//
// The XML is streamed: the prologue and its DTD are scanned, never parsed (exports with a broken
// DTD exist); the body is cut into parts of about `chunkBytes` at the start of lines that open a
// top-level element, and the parts are parsed in place by pugixml, each as a fragment, on
// `threads` threads at once. Results reach the sink in file order on the calling thread.
// Memory stays bounded by a few parts and their records, whatever the size of the export.
//
// Damage inside an export does not stop the reading: an unparsable stretch is skipped up to the
// next top-level element, and every kind of damage is counted in the ExportReport with the line
// numbers of its first occurrences. A file that is no export at all fails with an error.
#pragma once

#include <cstddef>
#include <filesystem>

#include "ingest/ExportSink.h"
#include "ingest/ExportSource.h"
#include "velk/ExportReport.h"
#include "velk/Result.h"
#include "velk/SourceIdentifierRule.h"

namespace velk::ingest {

struct ExportReadOptions {
  SourceIdentifierRule sources;
  /// Parts of the body parsed at once, each on a thread of its own, while the calling thread
  /// cuts the next one (one more is started before the oldest is waited for); 1 parses on the
  /// calling thread.
  unsigned threads = 2;
  /// The size of the parts handed to the parsers.
  std::size_t chunkBytes = std::size_t{4} << 20;
};

class ExportReader {
 public:
  explicit ExportReader(ExportReadOptions options = {});

  /// Reads the export at `path` (a zip archive or an XML file) into `sink`. On failure the
  /// records delivered before it stay delivered, and the error says how far the reading came.
  Result<ExportReport> read(const std::filesystem::path& path, ExportSink& sink) const;

  /// Reads the export XML that `source` streams.
  Result<ExportReport> read(ExportSource& source, ExportSink& sink) const;

 private:
  ExportReadOptions options_;
};

}  // namespace velk::ingest
