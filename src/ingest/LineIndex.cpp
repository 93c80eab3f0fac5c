#include "LineIndex.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "ByteMasks.h"

namespace velk::ingest {

namespace {

std::uint64_t countOf(std::uint64_t bits) {
  // Most words hold no line feed; a popcount is a library call on plain x86-64.
  return bits == 0 ? 0 : static_cast<std::uint64_t>(std::popcount(bits));
}

}  // namespace

std::size_t LineIndex::extendAndClean(char* text, std::size_t from, std::size_t to) {
  if (to <= from) {
    return 0;
  }
  const auto words = to / 64 + 1;
  feedBits_.resize(words);
  feedsBeforeBlock_.resize((words - 1) / kWordsPerBlock + 1);
  std::size_t replaced = 0;
  // The word that holds `from` is read again whole: its bytes before `from` are clean already,
  // and its line feeds are counted anew.
  for (auto word = from / 64; word < words; ++word) {
    total_ -= countOf(feedBits_[word]);
    if (word % kWordsPerBlock == 0) {
      feedsBeforeBlock_[word / kWordsPerBlock] = total_;
    }
    char* const group = text + 64 * word;
    const auto bytes = std::min<std::size_t>(64, to - 64 * word);
    ControlMasks masks;
    if (bytes == 64) {
      masks = controlMasks(group);
    } else if (bytes > 0) {
      char last[64];  // the bytes past `to` are no text: blanks stand in for them
      std::memset(last, ' ', sizeof last);
      std::memcpy(last, group, bytes);
      masks = controlMasks(last);
    }
    for (auto forbidden = masks.forbidden; forbidden != 0; forbidden &= forbidden - 1) {
      group[std::countr_zero(forbidden)] = ' ';
      ++replaced;
    }
    feedBits_[word] = masks.lineFeeds;
    total_ += countOf(masks.lineFeeds);
  }
  return replaced;
}

void LineIndex::truncate(std::size_t size) {
  const auto words = size / 64 + 1;
  if (words > feedBits_.size()) {
    return;
  }
  total_ = feedsBefore(size);
  feedBits_.resize(words);
  feedBits_.back() &= (std::uint64_t{1} << (size % 64)) - 1;
  feedsBeforeBlock_.resize((words - 1) / kWordsPerBlock + 1);
}

void LineIndex::clear() {
  feedBits_.assign(1, 0);
  feedsBeforeBlock_.assign(1, 0);
  total_ = 0;
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
