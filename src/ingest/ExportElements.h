// What the elements of an export's body mean, whichever parser met them: a `Record` is a sample
// (unless it lies in a `Correlation`, whose records exports write at top level as well), its
// `MetadataEntry` HKWasUserEntered says whether it was entered by hand, and `Me` holds the
// characteristics. The parsers call start() and end() for each element in document order, one
// top-level element after the other.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "ExportChunkParser.h"
#include "RecordMapper.h"

namespace velk::ingest {

/// An attribute as XML reads it: the value with its escapes decoded.
struct RawAttribute {
  std::string_view name;
  std::string_view value;
};

class ElementReader {
 public:
  /// Reads the elements of `chunk` into `result`.
  ElementReader(const ExportChunk& chunk, const ChunkContext& context, ChunkResult& result);

  /// Before the first element of a top-level element's tree.
  void beginTree();

  /// An element starts at `offset` of the part (its "<"), with its attributes in file order.
  void start(std::string_view name, std::size_t offset, std::span<const RawAttribute> attributes);

  /// The element started last and not yet ended ends.
  void end();

  /// Puts what was counted along the way into the report; after the last element.
  void finish();

 private:
  enum class Frame : std::uint8_t { other, record, skippedRecord, correlation, correlationRecord };

  Frame startRecord(std::size_t offset, std::span<const RawAttribute> attributes);
  void readMetadata(std::span<const RawAttribute> attributes);
  void readCharacteristics(std::size_t offset, std::span<const RawAttribute> attributes);
  void note(ExportIssue issue, std::size_t offset, std::string_view detail = {});

  const ExportChunk& chunk_;
  ChunkResult& result_;
  RecordMapper mapper_;
  std::vector<Frame> frames_;
  std::vector<ExportRecord> pending_;  // the records whose element is open, innermost last
  int correlationDepth_ = 0;
};

}  // namespace velk::ingest
