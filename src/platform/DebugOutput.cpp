#include "velk/DebugOutput.h"

#include <cstdio>
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

void writeLine(const std::string& line) {
  std::lock_guard<std::mutex> lock(outputMutex());
  if (auto& capture = activeCapture()) {
    capture->text += line;
    capture->text += '\n';
    return;
  }
  std::cerr << line << '\n' << std::flush;
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
