#include "velk/DebugOutput.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>

namespace velk::platform {

struct debug_output_detail::CaptureBuffer {
  std::string text;
};

namespace {

// One lock for the sink and every write, so that a capture never sees half a line and stderr
// never gets two lines mixed.
std::mutex& outputMutex() {
  static std::mutex mutex;
  return mutex;
}

std::shared_ptr<debug_output_detail::CaptureBuffer>& activeCapture() {
  static std::shared_ptr<debug_output_detail::CaptureBuffer> capture;
  return capture;
}

DebugOutputHandler& installedHandler() {
  static DebugOutputHandler handler;
  return handler;
}

// Writes one line where the debug output goes now; true when that is stderr.
bool writeLine(std::string_view line) {
  std::lock_guard<std::mutex> lock(outputMutex());
  if (auto& capture = activeCapture()) {
    capture->text += line;
    capture->text += '\n';
    return false;
  }
  if (const auto& handler = installedHandler()) {
    handler(line);
    return false;
  }
  std::cerr << line << '\n' << std::flush;
  return true;
}

}  // namespace

std::string debugDescription(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  out += '"';
  for (const char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char escaped[16];
          std::snprintf(escaped, sizeof escaped, "\\u{%x}", static_cast<unsigned>(c));
          out += escaped;
        } else {
          out += c;
        }
    }
  }
  out += '"';
  return out;
}

std::string debugDescription(const Error& error) {
  return "Error Domain=" + error.domain() + " Code=" + std::to_string(error.code()) + " " +
         debugDescription(error.message());
}

void debugPrint(std::string_view text) {
  writeLine(debugDescription(text));
}

void debugPrint(const Error& error) {
  writeLine(debugDescription(error));
}

void fatalError(std::string_view message) {
  const std::string line = "velk: fatal error: " + std::string(message);
  if (!writeLine(line)) {
    std::cerr << line << '\n' << std::flush;
  }
  std::abort();
}

void setDebugOutputHandler(DebugOutputHandler handler) {
  std::lock_guard<std::mutex> lock(outputMutex());
  installedHandler() = std::move(handler);
}

DebugOutputCapture::DebugOutputCapture()
    : buffer_(std::make_shared<debug_output_detail::CaptureBuffer>()) {
  std::lock_guard<std::mutex> lock(outputMutex());
  previous_ = activeCapture();
  activeCapture() = buffer_;
}

DebugOutputCapture::~DebugOutputCapture() {
  std::lock_guard<std::mutex> lock(outputMutex());
  activeCapture() = previous_;
}

std::string DebugOutputCapture::text() const {
  std::lock_guard<std::mutex> lock(outputMutex());
  return buffer_->text;
}

}  // namespace velk::platform
