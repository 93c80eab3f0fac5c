#include "LineIndex.h"

#include <bit>
#include <cstring>

#include "ByteMasks.h"

namespace velk::ingest {

std::uint64_t LineIndex::build(std::string_view text) {
  const auto fullWords = text.size() / 64;
  const auto words = fullWords + 1;
  feedBits_.resize(words);
  feedsBeforeBlock_.resize(words / kWordsPerBlock + 1);
  std::uint64_t count = 0;
  for (std::size_t word = 0; word < words; ++word) {
    if (word % kWordsPerBlock == 0) {
      feedsBeforeBlock_[word / kWordsPerBlock] = count;
    }
    std::uint64_t bits = 0;
    if (word < fullWords) {
      bits = lineFeedMask(text.data() + 64 * word);
    } else {
      char last[64] = {};
      if (const auto rest = text.size() - 64 * word; rest > 0) {
        std::memcpy(last, text.data() + 64 * word, rest);
      }
      bits = lineFeedMask(last);
    }
    feedBits_[word] = bits;
    if (bits != 0) {  // most words hold none; a popcount is a library call on plain x86-64
      count += static_cast<std::uint64_t>(std::popcount(bits));
    }
  }
  total_ = count;
  return count;
}

std::uint64_t LineIndex::feedsBefore(std::size_t offset) const {
  const auto word = offset / 64;
  if (word >= feedBits_.size()) {
    return total_;
  }
  auto count = feedsBeforeBlock_[word / kWordsPerBlock];
  for (auto before = word - word % kWordsPerBlock; before < word; ++before) {
    count += static_cast<std::uint64_t>(std::popcount(feedBits_[before]));
  }
  const auto below = (std::uint64_t{1} << (offset % 64)) - 1;
  return count + static_cast<std::uint64_t>(std::popcount(feedBits_[word] & below));
}

}  // namespace velk::ingest
