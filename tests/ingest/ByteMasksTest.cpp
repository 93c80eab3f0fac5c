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
    ASSERT_EQ(lineFeedMask(bytes.data()), bytewise::lineFeedMask(bytes.data()));
    ASSERT_EQ(forbiddenControlMask(bytes.data()), bytewise::forbiddenControlMask(bytes.data()));
  }
  std::string one(64, 'x');
  one[63] = '\v';
  one[0] = '\n';
  EXPECT_EQ(forbiddenControlMask(one.data()), std::uint64_t{1} << 63);
  EXPECT_EQ(lineFeedMask(one.data()), std::uint64_t{1});
}

}  // namespace
}  // namespace velk::ingest
