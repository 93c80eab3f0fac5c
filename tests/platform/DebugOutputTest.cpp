#include "velk/DebugOutput.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace velk::platform {
namespace {

TEST(DebugOutputTest, TextAndErrorsInTheirDebugFormOneLineEach) {
  DebugOutputCapture capture;
  debugPrint("No health data is available.");
  debugPrint("say \"hi\"\\\n");
  debugPrint(Error("com.apple.healthkit", 5, "Authorization not determined"));
  EXPECT_EQ(capture.text(),
            "\"No health data is available.\"\n\"say \\\"hi\\\"\\\\\\n\"\n"
            "Error Domain=com.apple.healthkit Code=5 \"Authorization not determined\"\n");
}

TEST(DebugOutputConcurrencyTest, LinesFromManyThreadsNeverInterleave) {
  DebugOutputCapture capture;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 200; ++i)
        debugPrint("abcdefghij");
    });
  }
  for (auto& thread : threads)
    thread.join();
  std::string expected;
  for (int i = 0; i < 800; ++i)
    expected += "\"abcdefghij\"\n";
  EXPECT_EQ(capture.text(), expected);
}

}  // namespace
}  // namespace velk::platform
