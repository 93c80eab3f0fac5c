// Parsing one part of an export's body: a run of whole top-level elements, parsed in place by
// pugixml as a fragment (the part's own bytes become the strings of the element tree, so a part
// costs no copy). Where the XML is broken, the elements before the damage are kept and the part
// is parsed again from the next top-level element on, so that one broken record costs that
// record only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "LineIndex.h"
#include "PartBytes.h"
#include "ingest/ExportRecordBatch.h"
#include "platform/SampleRecord.h"
#include "velk/ExportReport.h"
#include "velk/SourceIdentifierRule.h"

namespace velk::ingest {

struct ExportChunk {
  PartBytes bytes;
  std::uint64_t firstLine = 1;  ///< the file's line on which `bytes` starts
  /// The line feeds of `bytes`, indexed before the parse alters them.
  LineIndex lines;
};

struct ChunkResult {
  ExportRecordBatch batch;
  std::optional<platform::Characteristics> characteristics;
  ExportReport report;
};

/// The settings that hold for every part of one export.
struct ChunkContext {
  const SourceIdentifierRule* sources = nullptr;
  std::optional<Date> exportDate;
  /// The blanks before top-level elements at the start of their line (" " in Apple's exports).
  std::string indent;
};

/// Parses `chunk`. Its bytes are overwritten by the parse (names and values are cut out of them
/// in place); only their memory is of use afterwards.
ChunkResult parseChunk(ExportChunk& chunk, const ChunkContext& context);

/// The offset of the first line at or after `from` that starts with `indent` and then an
/// element's start tag ("\n <Record"), or npos.
std::size_t nextTopLevelStart(std::string_view text, std::size_t from, std::string_view indent);

/// The offset of the last such line start after offset 0, or npos.
std::size_t lastTopLevelStart(std::string_view text, std::string_view indent);

}  // namespace velk::ingest
