#include "velk/DebugOutput.h"

#include <string>
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

// A host's handler takes the lines; a capture still comes first. A fatal error reaches stderr
// whatever collects the output, since the process ends with it.
TEST(DebugOutputTest, AHandlerTakesTheLinesAndAFatalErrorAlsoReachesStderr) {
  std::vector<std::string> lines;
  setDebugOutputHandler([&lines](std::string_view line) { lines.emplace_back(line); });
  debugPrint("to the host");
  {
    DebugOutputCapture capture;
    debugPrint("to the capture");
    EXPECT_EQ(capture.text(), "\"to the capture\"\n");
    EXPECT_DEATH(fatalError("a broken promise"), "^velk: fatal error: a broken promise\n$");
  }
  setDebugOutputHandler({});
  EXPECT_EQ(lines, std::vector<std::string>{"\"to the host\""});
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
