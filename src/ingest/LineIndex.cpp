#include "LineIndex.h"

#include <bit>
#include <cstring>

namespace velk::ingest {

std::uint64_t LineIndex::build(std::string_view text) {
  const auto words = text.size() / 64 + 1;
  feedBits_.assign(words, 0);
  feedsBeforeBlock_.assign(words / kWordsPerBlock + 1, 0);
  const char* const data = text.data();
  const char* const end = data + text.size();
  std::uint64_t count = 0;
  std::size_t blocksCounted = 1;  // block 0 has none before it
  for (const char* at = data;
       (at = static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)))) !=
       nullptr;
       ++at) {
    const auto offset = static_cast<std::size_t>(at - data);
    const auto block = offset / (64 * kWordsPerBlock);
    for (; blocksCounted <= block; ++blocksCounted) {
      feedsBeforeBlock_[blocksCounted] = count;
    }
    feedBits_[offset / 64] |= std::uint64_t{1} << (offset % 64);
    ++count;
  }
  for (; blocksCounted < feedsBeforeBlock_.size(); ++blocksCounted) {
    feedsBeforeBlock_[blocksCounted] = count;
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
