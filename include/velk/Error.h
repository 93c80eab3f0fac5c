// Errors are values. An Error carries a domain, a numeric code and a message, and is shared, not
// copied, when it is passed on: a store error that reaches a host unchanged is the very same
// error object, which isSameInstance() can tell.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

namespace velk {

class Error {
 public:
  Error(std::string domain, std::int64_t code, std::string message);

  const std::string& domain() const { return payload_->domain; }
  std::int64_t code() const { return payload_->code; }
  const std::string& message() const { return payload_->message; }

  /// True when both refer to one error object (it was passed on, not recreated).
  bool isSameInstance(const Error& other) const { return payload_ == other.payload_; }

  /// Errors are equal when domain, code and message are.
  friend bool operator==(const Error& a, const Error& b);

 private:
  struct Payload {
    std::string domain;
    std::int64_t code;
    std::string message;
  };
  std::shared_ptr<const Payload> payload_;
};

std::ostream& operator<<(std::ostream& out, const Error& error);

}  // namespace velk
