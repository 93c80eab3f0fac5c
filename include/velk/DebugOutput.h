// The debug output: where the library writes the few things it reports without a completion (a
// failed read inside the physical and body summaries, a device without a health store). On the
// phone this is the console that the platform's debugPrint writes to; here it is stderr.
//
// Every write is one whole line, made under a lock, so that lines written from different queues
// never interleave. A host or a test can collect the output instead with DebugOutputCapture (the
// tool folds a range's repeated lines into one, the Python package hands them to its logger).
#pragma once

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
