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
  /// Indexes `text`; returns how many line feeds it holds.
  std::uint64_t build(std::string_view text);

  /// How many line feeds lie before `offset` (an offset past the end counts them all).
  std::uint64_t feedsBefore(std::size_t offset) const;

 private:
  static constexpr std::size_t kWordsPerBlock = 64;

  std::vector<std::uint64_t> feedBits_;          ///< bit k of word w: text[64 * w + k] is one
  std::vector<std::uint64_t> feedsBeforeBlock_;  ///< line feeds before word kWordsPerBlock * b
  std::uint64_t total_ = 0;
};

}  // namespace velk::ingest
