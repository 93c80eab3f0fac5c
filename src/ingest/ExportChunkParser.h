// Parsing one part of an export's body: a run of whole top-level elements. The record scanner
// (ElementScanner) reads the plain elements that nearly all of a part is made of; from the first
// element it does not read on, pugixml parses the part in place as a fragment (the part's own
// bytes become the strings of the element tree, so a part costs no copy). Where the XML is
// broken, the elements before the damage are kept and the part is read again from the next
// top-level element on, so that one broken record costs that record only.
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
  PartBytes bytes;              ///< forbidden controls not replaced yet: the parse does that first
  std::uint64_t firstLine = 1;  ///< the line on which `bytes` starts, for the report
  /// The line feeds of `bytes`, indexed by the parse before it alters them (the memory of an
  /// earlier part's index may be handed in again).
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

/// How a part's syntax is read.
enum class ChunkSyntax : std::uint8_t {
  scanned,      ///< the record scanner where it can, pugixml elsewhere
  pugixmlOnly,  ///< pugixml everywhere: the reference that the scanner is fuzzed against
};

/// Parses `chunk`: indexes its line feeds and replaces its forbidden controls, then reads it.
/// Its bytes may be overwritten by the parse (pugixml cuts names and values out of them in
/// place); only their memory is of use afterwards.
ChunkResult parseChunk(ExportChunk& chunk, const ChunkContext& context,
                       ChunkSyntax syntax = ChunkSyntax::scanned);

/// Whether `text` at `at` holds `indent` and then an element's start tag (not an end tag, a
/// comment, a declaration or a processing instruction). A forbidden control counts as the space
/// that replaces it, so that the answer is the same before and after the part is cleaned.
bool startsTopLevelElement(std::string_view text, std::size_t at, std::string_view indent);

/// The offset of the first line at or after `from` that starts with `indent` and then an
/// element's start tag ("\n <Record"), or npos.
std::size_t nextTopLevelStart(std::string_view text, std::size_t from, std::string_view indent);

/// The offset of the last such line start after offset 0, or npos.
std::size_t lastTopLevelStart(std::string_view text, std::string_view indent);

}  // namespace velk::ingest
