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

}  // namespace
}  // namespace velk::ingest
