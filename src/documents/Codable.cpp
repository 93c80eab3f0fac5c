// The non-generic half of the record coding: scalar values, key paths, errors and the two
// conversions that every document root offers.
#include "velk/Codable.h"

#include <cmath>
#include <limits>
#include <vector>

namespace velk {

namespace {

// The doubles that convert to std::int64_t without overflow: [-2^63, 2^63).
constexpr double kSmallestInteger = -9223372036854775808.0;
constexpr double kIntegerUpperBound = 9223372036854775808.0;

bool isWholeInteger(double value) {
  return std::isfinite(value) && std::trunc(value) == value && value >= kSmallestInteger &&
         value < kIntegerUpperBound;
}

std::string typeName(const nlohmann::json& value) {
  if (value.is_number_integer()) {
    return "an integer";
  }
  if (value.is_number_float()) {
    return "a number";
  }
  return std::string(value.type_name());
}

}  // namespace

std::string KeyPath::text() const {
  std::vector<const KeyPath*> chain;
  for (const KeyPath* at = this; at->parent_ != nullptr; at = at->parent_) {
    chain.push_back(at);
  }
  if (chain.empty()) {
    return "(root)";
  }
  std::string result;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    const KeyPath& segment = **it;
    if (segment.key_.empty()) {
      result += '[';
      result += std::to_string(segment.index_);
      result += ']';
    } else {
      if (!result.empty()) {
        result += '.';
      }
      result += segment.key_;
    }
  }
  return result;
}

Error codingError(CodingErrorCode code, const KeyPath& path, std::string_view reason) {
  std::string message = path.text();
  message += ": ";
  message += reason;
  return Error(std::string(kCodingErrorDomain), static_cast<std::int64_t>(code),
               std::move(message));
}

namespace coding_detail {

Failure encodeInteger(std::int64_t value, nlohmann::json& out) {
  out = value;
  return std::nullopt;
}

// A date is its seconds since the reference moment. A whole number of seconds is stored as a JSON
// integer so that it is written as "86400", not "86400.0"; any other value stays a double, which
// the writer prints with the shortest text that reads back to the same double.
Failure encodeDate(Date value, nlohmann::json& out, const KeyPath& path) {
  const double seconds = value.timeIntervalSinceReferenceDate();
  if (!std::isfinite(seconds)) {
    return codingError(CodingErrorCode::invalidValue, path,
                       "a date that is not a finite number cannot be written as JSON");
  }
  if (isWholeInteger(seconds)) {
    out = static_cast<std::int64_t>(seconds);
  } else {
    out = seconds;
  }
  return std::nullopt;
}

// Whole numbers may arrive as integers or, from writers that know only doubles, as integral
// floating-point numbers; both are accepted. A fraction or a value beyond the 64-bit range is not.
Failure decodeInteger(const nlohmann::json& in, std::int64_t& out, const KeyPath& path) {
  if (in.is_number_integer() && !in.is_number_unsigned()) {
    out = in.get<std::int64_t>();
    return std::nullopt;
  }
  if (in.is_number_unsigned()) {
    const auto value = in.get<std::uint64_t>();
    if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      out = static_cast<std::int64_t>(value);
      return std::nullopt;
    }
    return codingError(CodingErrorCode::dataCorrupted, path,
                       "number " + in.dump() + " does not fit in a 64-bit integer");
  }
  if (in.is_number_float()) {
    const auto value = in.get<double>();
    if (isWholeInteger(value)) {
      out = static_cast<std::int64_t>(value);
      return std::nullopt;
    }
    return codingError(CodingErrorCode::dataCorrupted, path,
                       "number " + in.dump() + " does not fit in a 64-bit integer");
  }
  return codingError(CodingErrorCode::typeMismatch, path,
                     "expected a whole number, found " + typeName(in));
}

Failure decodeString(const nlohmann::json& in, std::string& out, const KeyPath& path) {
  if (!in.is_string()) {
    return codingError(CodingErrorCode::typeMismatch, path,
                       "expected a string, found " + typeName(in));
  }
  out = in.get<std::string>();
  return std::nullopt;
}

Failure decodeDate(const nlohmann::json& in, Date& out, const KeyPath& path) {
  if (!in.is_number()) {
    return codingError(CodingErrorCode::typeMismatch, path,
                       "expected a date as a number of seconds, found " + typeName(in));
  }
  out = Date::fromReferenceSeconds(in.get<double>());
  return std::nullopt;
}

Failure expectType(const nlohmann::json& in, nlohmann::json::value_t type, const KeyPath& path) {
  if (in.type() == type) {
    return std::nullopt;
  }
  const char* expected = type == nlohmann::json::value_t::object ? "an object" : "an array";
  return codingError(CodingErrorCode::typeMismatch, path,
                     std::string("expected ") + expected + ", found " + typeName(in));
}

std::optional<std::string> jsonText(const Result<nlohmann::json>& encoded) {
  if (encoded.isFailure()) {
    return std::nullopt;
  }
  try {
    // The strict error handler makes text that is not UTF-8 an encoding failure instead of
    // bytes that no JSON reader would accept.
    return encoded.value().dump(-1, ' ', false, nlohmann::json::error_handler_t::strict);
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
}

nlohmann::json dictionary(const Result<nlohmann::json>& encoded) {
  const std::optional<std::string> text = jsonText(encoded);
  if (!text.has_value()) {
    return nlohmann::json::object();
  }
  nlohmann::json parsed = nlohmann::json::parse(*text, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded() || !parsed.is_object()) {
    return nlohmann::json::object();
  }
  return parsed;
}

}  // namespace coding_detail

}  // namespace velk
