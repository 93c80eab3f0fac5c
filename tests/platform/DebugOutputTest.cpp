#include "velk/platform/DebugOutput.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace velk::platform {
namespace {

TEST(DebugOutputTest, TextIsQuotedEscapedAndEndsTheLine) {
  DebugOutputCapture capture;
  debugPrint("No health data is available.");
  debugPrint("say \"hi\"\\\n");
  EXPECT_EQ(capture.text(), "\"No health data is available.\"\n\"say \\\"hi\\\"\\\\\\n\"\n");
}

TEST(DebugOutputTest, ErrorShowsDomainCodeAndMessage) {
  DebugOutputCapture capture;
  debugPrint(Error("com.apple.healthkit", 5, "Authorization not determined"));
  EXPECT_EQ(capture.text(),
            "Error Domain=com.apple.healthkit Code=5 \"Authorization not determined\"\n");
}

TEST(DebugOutputTest, NestedCaptureCollectsAloneAndHandsBack) {
  DebugOutputCapture outer;
  {
    DebugOutputCapture inner;
    debugPrint("inner");
    EXPECT_EQ(inner.text(), "\"inner\"\n");
  }
  debugPrint("outer");
  EXPECT_EQ(outer.text(), "\"outer\"\n");
}

TEST(DebugOutputConcurrencyTest, LinesFromManyThreadsNeverInterleave) {
  DebugOutputCapture capture;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 200; ++i) {
        debugPrint("abcdefghij");
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  std::string expected;
  for (int i = 0; i < 800; ++i) {
    expected += "\"abcdefghij\"\n";
  }
  EXPECT_EQ(capture.text(), expected);
}

}  // namespace
}  // namespace velk::platform
