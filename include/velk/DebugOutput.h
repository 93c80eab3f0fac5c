// The debug output: where the library writes the few things it reports without a completion (a
// failed read inside the physical and body summaries, a device without a health store). On the
// phone this is the console that the platform's debugPrint writes to; here it is stderr.
//
// Every write is one whole line, made under a lock, so that lines written from different queues
// never interleave. A host can take the lines itself (setDebugOutputHandler; the C interface's
// velk_set_debug_output; the Python package hands them to its logger), and a test can collect
// them with DebugOutputCapture.
//
// It is also the library's one way out for a programming error: fatalError() writes its line here
// and stops the process.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "velk/Error.h"

namespace velk::platform {

namespace debug_output_detail {
struct CaptureBuffer;
}

/// `text` in its debug form: in quotation marks, with quotation marks, backslashes and control
/// characters escaped ("a \"b\"" for a "b"), as the platform's debugPrint shows a string.
std::string debugDescription(std::string_view text);

/// An error in its debug form: `Error Domain=<domain> Code=<code> "<message>"`.
std::string debugDescription(const Error& error);

/// Writes the debug form of `text`, followed by a line break.
void debugPrint(std::string_view text);

/// Writes the debug form of `error`, followed by a line break.
void debugPrint(const Error& error);

/// Stops the process for a programming error of the library or its host (a broken invariant, a
/// contract that a caller did not keep): writes "velk: fatal error: <message>" through the debug
/// output, and to stderr too when the debug output goes elsewhere (what a capture collected ends
/// with the process), then aborts.
[[noreturn]] void fatalError(std::string_view message);

/// Called with each line of the debug output (without its line break), on the thread that writes
/// it, one line at a time.
using DebugOutputHandler = std::function<void(std::string_view line)>;

/// Sends the debug output to `handler` from now on; an empty handler sends it back to stderr.
/// An active DebugOutputCapture still collects first.
void setDebugOutputHandler(DebugOutputHandler handler);

/// While it lives, everything written to the debug output is collected here instead of going to
/// stderr. Captures nest: the newest one collects, and the one before it resumes when it ends.
class DebugOutputCapture {
 public:
  DebugOutputCapture();
  ~DebugOutputCapture();
  DebugOutputCapture(const DebugOutputCapture&) = delete;
  DebugOutputCapture& operator=(const DebugOutputCapture&) = delete;

  /// Everything collected so far.
  std::string text() const;

 private:
  std::shared_ptr<debug_output_detail::CaptureBuffer> buffer_;
  std::shared_ptr<debug_output_detail::CaptureBuffer> previous_;
};

}  // namespace velk::platform
