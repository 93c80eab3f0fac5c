#include "ingest/ByteMasks.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

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
  std::string one(64, 'x');
  one[63] = '\v';
  one[0] = '\n';
  EXPECT_EQ(controlMasks(one.data()).forbidden, std::uint64_t{1} << 63);
  EXPECT_EQ(controlMasks(one.data()).lineFeeds, std::uint64_t{1});
  EXPECT_EQ(bytewise::controlMasks(one.data()).forbidden, std::uint64_t{1} << 63);
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

}  // namespace
}  // namespace velk::ingest
