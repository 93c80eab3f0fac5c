// Where the line feeds of a part of an export are, taken before the part is parsed in place
// (the parse overwrites some of them and moves decoded values over their escapes), so that a
// warning can name the line of any offset afterwards.
//
// One bit per byte and a running count per 4 KiB: an eighth of the text, whatever it holds. A
// list of line-feed offsets would cost 8 bytes per line, 8 times the text for empty lines.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace velk::ingest {

class LineIndex {
 public:
  /// Extends the index over text[from, to), the bytes before `from` being indexed already, and
  /// replaces the forbidden control characters there by spaces; returns how many it replaced.
  /// Both are bytes below 0x20, which most groups of 64 bytes hold none of, so one look at each
  /// group finds both while a block just read is still in the cache.
  std::size_t extendAndClean(char* text, std::size_t from, std::size_t to);

  /// Forgets the line feeds at and after `size`.
  void truncate(std::size_t size);

  void clear();

  /// How many line feeds the index holds.
  std::uint64_t total() const { return total_; }

  /// How many line feeds lie before `offset` (an offset past the end counts them all).
  std::uint64_t feedsBefore(std::size_t offset) const;

 private:
  static constexpr std::size_t kWordsPerBlock = 64;

  // Words cover the text and one partial (perhaps empty) word more: 64 * (size() - 1) <= text.
  std::vector<std::uint64_t> feedBits_{0};          ///< bit k of word w: text[64 * w + k] is one
  std::vector<std::uint64_t> feedsBeforeBlock_{0};  ///< line feeds before word kWordsPerBlock * b
  std::uint64_t total_ = 0;
};

}  // namespace velk::ingest
