#include "LineIndex.h"

#include <bit>
#include <cstring>

namespace velk::ingest {

std::uint64_t LineIndex::build(std::string_view text) {
  const auto words = text.size() / 64 + 1;
  feedBits_.assign(words, 0);
  feedsBeforeWord_.resize(words);
  const char* const data = text.data();
  const char* const end = data + text.size();
  for (const char* at = data;
       (at = static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)))) !=
       nullptr;
       ++at) {
    const auto offset = static_cast<std::size_t>(at - data);
    feedBits_[offset / 64] |= std::uint64_t{1} << (offset % 64);
  }
  std::uint64_t count = 0;
  for (std::size_t word = 0; word < words; ++word) {
    feedsBeforeWord_[word] = count;
    count += static_cast<std::uint64_t>(std::popcount(feedBits_[word]));
  }
  return count;
}

std::uint64_t LineIndex::feedsBefore(std::size_t offset) const {
  const auto word = offset / 64;
  if (word >= feedBits_.size()) {
    return feedBits_.empty() ? 0
                             : feedsBeforeWord_.back() +
                                   static_cast<std::uint64_t>(std::popcount(feedBits_.back()));
  }
  const auto below = (std::uint64_t{1} << (offset % 64)) - 1;
  return feedsBeforeWord_[word] +
         static_cast<std::uint64_t>(std::popcount(feedBits_[word] & below));
}

}  // namespace velk::ingest
