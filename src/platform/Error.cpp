#include "velk/Error.h"

#include <utility>

namespace velk {

Error::Error(std::string domain, std::int64_t code, std::string message)
    : payload_(
          std::make_shared<const Payload>(Payload{std::move(domain), code, std::move(message)})) {}

bool operator==(const Error& a, const Error& b) {
  return a.isSameInstance(b) ||
         (a.domain() == b.domain() && a.code() == b.code() && a.message() == b.message());
}

std::ostream& operator<<(std::ostream& out, const Error& error) {
  return out << error.domain() << " " << error.code() << ": " << error.message();
}

}  // namespace velk
