// The byte-level helpers of the reading thread and the scanner: the vector masks and searches
// against their byte-by-byte references, and the line index with its control-character cleaning.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "ingest/ByteMasks.h"
#include "ingest/LineIndex.h"

namespace velk::ingest {
namespace {

// The masks the processor computes against the byte-by-byte reference, for every byte value at
// every position of a group of 64.
TEST(ByteMasksTest, AgreeWithTheByteByByteReading) {
  std::mt19937 random(11);
  for (int round = 0; round < 2000; ++round) {
    std::string bytes(64, 'x');
    for (auto& byte : bytes) {
      // Half the bytes among the controls and their neighbours, where the comparisons turn.
      byte = static_cast<char>(random() % 2 == 0 ? random() % 0x22 : random() % 256);
    }
    const auto fast = controlMasks(bytes.data());
    const auto reference = bytewise::controlMasks(bytes.data());
    ASSERT_EQ(fast.lineFeeds, reference.lineFeeds);
    ASSERT_EQ(fast.forbidden, reference.forbidden);
  }
}

// The ends of names and values the processor finds against the byte-by-byte reference, from
// every start to every limit of random text made of the bytes where the answers turn.
TEST(ByteMasksTest, FindTheEndsOfNamesAndValuesAsTheByteByByteReading) {
  std::mt19937 random(12);
  const std::string turns = "\"&<\0azAZ09_.:-=@[`{/ \x80\xff";
  for (int round = 0; round < 300; ++round) {
    std::string bytes(48, 'x');
    for (auto& byte : bytes) {
      byte = random() % 3 == 0 ? turns[random() % turns.size()] : static_cast<char>(random() % 128);
    }
    for (std::size_t at = 0; at <= bytes.size(); ++at) {
      for (std::size_t limit = at; limit <= bytes.size(); ++limit) {
        ASSERT_EQ(findValueStop(bytes.data(), at, limit),
                  bytewise::findValueStop(bytes.data(), at, limit));
        ASSERT_EQ(findNameEnd(bytes.data(), at, limit),
                  bytewise::findNameEnd(bytes.data(), at, limit));
      }
    }
  }
}

// Texts that span several counting blocks, with lines of every length from empty to longer than
// a block, indexed in reads of uneven sizes and cut short, against a plain count at every offset.
TEST(LineIndexTest, CountsTheLineFeedsBeforeEveryOffset) {
  std::mt19937 random(7);
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{63}, std::size_t{64}, std::size_t{20000}}) {
    for (const unsigned feedsIn : {2u, 50u, 9000u}) {
      std::string text(size, 'x');
      for (auto& c : text) {
        c = random() % feedsIn == 0 ? '\n' : 'x';
      }
      LineIndex index;
      for (std::size_t from = 0; from < size;) {
        const auto to = std::min(size, from + 1 + random() % 300);
        EXPECT_EQ(index.extendAndClean(text.data(), from, to), 0u);
        from = to;
      }
      const auto kept = size - size / 3;
      index.truncate(kept);
      EXPECT_EQ(index.total(),
                static_cast<std::uint64_t>(std::count(text.data(), text.data() + kept, '\n')));
      std::uint64_t expected = 0;
      for (std::size_t offset = 0; offset <= kept + 100; ++offset) {
        ASSERT_EQ(index.feedsBefore(offset), expected) << "size " << size << ", offset " << offset;
        expected += offset < kept && text[offset] == '\n' ? 1u : 0u;
      }
    }
  }
}

TEST(LineIndexTest, ReplacesForbiddenControlsWhereItReads) {
  std::string text(200, 'x');
  text[5] = '\v';
  text[70] = '\x01';
  text[71] = '\n';
  text[150] = '\x1f';
  text[199] = '\t';
  LineIndex index;
  EXPECT_EQ(index.extendAndClean(text.data(), 0, 100), 2u);
  EXPECT_EQ(text[5], ' ');
  EXPECT_EQ(text.substr(100, 50), std::string(50, 'x'));  // not read yet, nor written
  EXPECT_EQ(text[150], '\x1f');
  EXPECT_EQ(index.extendAndClean(text.data(), 100, 200), 1u);
  EXPECT_EQ(text.find_first_of("\v\x01\x1f"), std::string::npos);
  EXPECT_EQ(text[71], '\n');
  EXPECT_EQ(text[199], '\t');
  EXPECT_EQ(index.total(), 1u);
}

}  // namespace
}  // namespace velk::ingest
