// The `velk` command line: parses the arguments, sets up the device and runs one command.
// Output conventions (docs/cli.md): documents and results as JSON on stdout; a failed result as
// {"error": {...}} on stdout with exit status 3; bad usage or bad input as a message on stderr
// with exit status 2.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace velk::cli {

enum ExitStatus : int {
  kExitSuccess = 0,
  kExitFailure = 1,       ///< the tool itself failed (no answer from the library in time)
  kExitBadInput = 2,      ///< bad usage or bad input
  kExitErrorResult = 3,   ///< the library answered with an error
  kExitInterrupted = 130  ///< stopped by Ctrl-C or SIGTERM, nothing changed (128 + SIGINT)
};

/// Runs the tool with `arguments` (without the program name).
int runTool(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

}  // namespace velk::cli
