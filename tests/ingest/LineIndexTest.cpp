#include "ingest/LineIndex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

namespace velk::ingest {
namespace {

// Every offset of texts that span several counting blocks, with lines of every length from
// empty to longer than a block, against a plain count.
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
      std::uint64_t expected = 0;
      EXPECT_EQ(index.build(text),
                static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n')));
      for (std::size_t offset = 0; offset <= size + 100; ++offset) {
        ASSERT_EQ(index.feedsBefore(offset), expected) << "size " << size << ", offset " << offset;
        expected += offset < size && text[offset] == '\n' ? 1u : 0u;
      }
    }
  }
}

}  // namespace
}  // namespace velk::ingest
