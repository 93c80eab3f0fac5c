#include "cli/ProgressBar.h"

#include <gtest/gtest.h>

#include <sstream>

namespace velk::cli {
namespace {

// The bar shows bytes, records, rate and time left (no bar and no estimate for an archive entry of
// unknown size); it draws only on a terminal and at most ten times a second.
TEST(ProgressBarTest, RendersProgressAndDrawsOnATerminalAtMostTenTimesASecond) {
  ingest::ImportProgress progress{145'000'000, 580'000'000, 1'234'567, false};
  EXPECT_EQ(ProgressBar::render(progress, 2.0),
            "[######..................]  25%  145.0/580.0 MB  1.2M records  72.5 MB/s  ETA 0:06");
  progress.bytesRead = progress.totalBytes;
  progress.finished = true;
  EXPECT_EQ(
      ProgressBar::render(progress, 65.0),
      "[########################] 100%  580.0/580.0 MB  1.2M records  8.9 MB/s  done in 1:05");
  EXPECT_EQ(ProgressBar::render({2'500'000, 0, 4'200, false}, 0.5),
            "2.5 MB  4200 records  5.0 MB/s");
  EXPECT_EQ(ProgressBar::renderDays(250, 1000, 2.0),
            "[######..................]  25%  250/1000 days  ETA 0:06");
  EXPECT_EQ(ProgressBar::renderDays(1000, 1000, 8.0),
            "[########################] 100%  1000/1000 days  done in 0:08");

  auto now = std::chrono::steady_clock::time_point{};
  const auto clock = [&now] { return now; };
  std::ostringstream silent;
  ProgressBar off(silent, false, clock);
  off.update({1, 10, 1, true});
  off.finish();
  EXPECT_EQ(silent.str(), "");

  std::ostringstream out;
  ProgressBar bar(out, true, clock);
  for (int i = 0; i < 50; ++i) {  // 50 updates within a quarter second
    now += std::chrono::milliseconds(5);
    bar.update({static_cast<std::uint64_t>(i), 100, 0, false});
  }
  bar.update({100, 100, 0, true});  // the last one is always drawn
  now += std::chrono::milliseconds(5);
  bar.updateDays(10, 10);  // so is the last day
  bar.finish();
  const std::string text = out.str();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\r'), 5);  // at 5, 105 and 205 ms, and both ends
  EXPECT_NE(text.find("100%"), std::string::npos);
  EXPECT_NE(text.find("10/10 days  done"), std::string::npos);
  EXPECT_EQ(text.back(), '\n');
}

}  // namespace
}  // namespace velk::cli
