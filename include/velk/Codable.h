// The one place where document records meet JSON.
//
// Every document record is a plain aggregate whose fields are listed once, in a static key table:
//
//   struct HeartRateData {
//     std::optional<std::int64_t> hrMaxBPM;
//     ...
//     static constexpr auto fields = std::tuple{
//         field("hr_max_bpm", &HeartRateData::hrMaxBPM),
//         ...};
//   };
//
// encodeRecord() and decodeRecord() walk that table, so the rules that every record follows live
// here and nowhere else:
//   - keys are written verbatim, every one of them; an absent optional is written as null;
//   - a field wrapped in omitWhenAbsent() is left out instead (the few keys a backend expects to
//     be missing rather than null);
//   - a Date is a JSON number of seconds since 2001-01-01T00:00:00Z, a whole number of seconds
//     without a fraction;
//   - on decoding, a missing or null optional is absent, and a missing required field is an error
//     that names its key path ("summaries.sleep_related_data.metadata.datetime").
// Neither direction throws: both hand back a velk::Result.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "velk/Date.h"
#include "velk/Error.h"
#include "velk/Result.h"

namespace velk {

/// One entry of a record's key table: the JSON key and the member it stands for.
template <class Owner, class Member>
struct Field {
  std::string_view key;
  Member Owner::*member;
  bool omittedWhenAbsent = false;
};

/// A key table entry whose absent value is written as null.
template <class Owner, class Member>
constexpr Field<Owner, Member> field(std::string_view key, Member Owner::*member) {
  return Field<Owner, Member>{key, member, false};
}

namespace coding_detail {
template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};
template <class T>
struct IsVector : std::false_type {};
template <class T, class A>
struct IsVector<std::vector<T, A>> : std::true_type {};
}  // namespace coding_detail

/// Marks an optional field whose key is left out of the JSON, rather than written as null, when
/// the value is absent. Only optionals can be absent, so only they can carry the mark.
template <class Owner, class Member>
requires coding_detail::IsOptional<Member>::value constexpr Field<Owner, Member> omitWhenAbsent(
    Field<Owner, Member> entry) {
  entry.omittedWhenAbsent = true;
  return entry;
}

/// A type with a key table.
template <class T>
concept Record = requires {
  T::fields;
};

/// The domain of the errors that encodeRecord() and decodeRecord() return.
inline constexpr std::string_view kCodingErrorDomain = "velk.documents.coding";

/// Why a value could not be encoded or decoded; the numbers are the codes of the errors.
enum class CodingErrorCode : std::int64_t {
  keyNotFound = 0,    // a required key is missing
  typeMismatch = 1,   // a value has the wrong JSON type (null in a required field included)
  dataCorrupted = 2,  // bytes that are not JSON, or a number that fits no field
  invalidValue = 3,   // a value that JSON cannot carry (a non-finite date) met the encoder
};

/// Where in a document a value sits, e.g. "summaries.body_data.metadata.user_demographics[0]".
/// A path is a chain of small stack values, each pointing at its parent, so that a successful
/// decode never builds a string; the text is made only when an error is reported.
class KeyPath {
 public:
  KeyPath() = default;

  KeyPath appending(std::string_view key) const { return KeyPath(this, key, 0); }
  KeyPath appending(std::size_t index) const { return KeyPath(this, {}, index); }

  /// The dotted path; "(root)" for the top of the document.
  std::string text() const;

 private:
  KeyPath(const KeyPath* parent, std::string_view key, std::size_t index)
      : parent_(parent), key_(key), index_(index) {}

  const KeyPath* parent_ = nullptr;
  std::string_view key_;  // empty for an array element
  std::size_t index_ = 0;
};

/// An error of kCodingErrorDomain whose message reads "<path>: <reason>".
Error codingError(CodingErrorCode code, const KeyPath& path, std::string_view reason);

namespace coding_detail {

using Failure = std::optional<Error>;

Failure encodeInteger(std::int64_t value, nlohmann::json& out);
Failure encodeDate(Date value, nlohmann::json& out, const KeyPath& path);
Failure decodeInteger(const nlohmann::json& in, std::int64_t& out, const KeyPath& path);
Failure decodeString(const nlohmann::json& in, std::string& out, const KeyPath& path);
Failure decodeDate(const nlohmann::json& in, Date& out, const KeyPath& path);
Failure expectType(const nlohmann::json& in, nlohmann::json::value_t type, const KeyPath& path);

template <class T>
Failure encodeValue(const T& value, nlohmann::json& out, const KeyPath& path);
template <class T>
Failure decodeValue(const nlohmann::json& in, T& out, const KeyPath& path);

template <class T, class Member>
Failure encodeField(const T& record, const Field<T, Member>& entry, nlohmann::json& out,
                    const KeyPath& path) {
  const Member& value = record.*(entry.member);
  if constexpr (IsOptional<Member>::value) {
    if (entry.omittedWhenAbsent && !value.has_value()) {
      return std::nullopt;
    }
  }
  return encodeValue(value, out[std::string(entry.key)], path.appending(entry.key));
}

template <class T, class Member>
Failure decodeField(const nlohmann::json& in, T& record, const Field<T, Member>& entry,
                    const KeyPath& path) {
  Member& value = record.*(entry.member);
  const KeyPath at = path.appending(entry.key);
  const auto found = in.find(entry.key);
  if (found != in.end()) {
    return decodeValue(*found, value, at);
  }
  if constexpr (IsOptional<Member>::value) {
    value.reset();
    return std::nullopt;
  } else {
    return codingError(CodingErrorCode::keyNotFound, at, "missing required key");
  }
}

// Both walks stop at the first failure: the fold of || short-circuits.
template <Record T>
Failure encodeFields(const T& record, nlohmann::json& out, const KeyPath& path) {
  out = nlohmann::json::object();
  Failure failure;
  std::apply(
      [&](const auto&... entries) {
        static_cast<void>(((failure = encodeField(record, entries, out, path)).has_value() || ...));
      },
      T::fields);
  return failure;
}

template <Record T>
Failure decodeFields(const nlohmann::json& in, T& record, const KeyPath& path) {
  if (auto failure = expectType(in, nlohmann::json::value_t::object, path)) {
    return failure;
  }
  Failure failure;
  std::apply(
      [&](const auto&... entries) {
        static_cast<void>(((failure = decodeField(in, record, entries, path)).has_value() || ...));
      },
      T::fields);
  return failure;
}

template <class T>
Failure encodeValue(const T& value, nlohmann::json& out, const KeyPath& path) {
  if constexpr (Record<T>) {
    return encodeFields(value, out, path);
  } else if constexpr (IsOptional<T>::value) {
    if (!value.has_value()) {
      out = nullptr;
      return std::nullopt;
    }
    return encodeValue(*value, out, path);
  } else if constexpr (IsVector<T>::value) {
    out = nlohmann::json::array();
    for (std::size_t index = 0; index < value.size(); ++index) {
      out.push_back(nullptr);
      if (auto failure = encodeValue(value[index], out.back(), path.appending(index))) {
        return failure;
      }
    }
    return std::nullopt;
  } else if constexpr (std::is_same_v<T, Date>) {
    return encodeDate(value, out, path);
  } else if constexpr (std::is_same_v<T, std::int64_t>) {
    return encodeInteger(value, out);
  } else {
    static_assert(std::is_same_v<T, std::string>, "a document field of an unsupported type");
    out = value;
    return std::nullopt;
  }
}

template <class T>
Failure decodeValue(const nlohmann::json& in, T& out, const KeyPath& path) {
  if constexpr (Record<T>) {
    return decodeFields(in, out, path);
  } else if constexpr (IsOptional<T>::value) {
    if (in.is_null()) {
      out.reset();
      return std::nullopt;
    }
    typename T::value_type inner{};
    if (auto failure = decodeValue(in, inner, path)) {
      return failure;
    }
    out = std::move(inner);
    return std::nullopt;
  } else if constexpr (IsVector<T>::value) {
    if (auto failure = expectType(in, nlohmann::json::value_t::array, path)) {
      return failure;
    }
    out.clear();
    out.reserve(in.size());
    for (std::size_t index = 0; index < in.size(); ++index) {
      typename T::value_type element{};
      if (auto failure = decodeValue(in[index], element, path.appending(index))) {
        return failure;
      }
      out.push_back(std::move(element));
    }
    return std::nullopt;
  } else if constexpr (std::is_same_v<T, Date>) {
    return decodeDate(in, out, path);
  } else if constexpr (std::is_same_v<T, std::int64_t>) {
    return decodeInteger(in, out, path);
  } else {
    static_assert(std::is_same_v<T, std::string>, "a document field of an unsupported type");
    return decodeString(in, out, path);
  }
}

}  // namespace coding_detail

/// The record as a JSON object, or the error of the first value that JSON cannot carry.
template <Record T>
Result<nlohmann::json> encodeRecord(const T& record) {
  nlohmann::json out;
  if (auto failure = coding_detail::encodeValue(record, out, KeyPath())) {
    return Result<nlohmann::json>::failure(*failure);
  }
  return Result<nlohmann::json>::success(std::move(out));
}

/// The record read from a JSON object, or an error naming the key path of the first problem.
template <Record T>
Result<T> decodeRecord(const nlohmann::json& in) {
  T record{};
  if (auto failure = coding_detail::decodeValue(in, record, KeyPath())) {
    return Result<T>::failure(*failure);
  }
  return Result<T>::success(std::move(record));
}

/// The record read from UTF-8 JSON text.
template <Record T>
Result<T> decodeRecord(std::string_view json) {
  nlohmann::json parsed = nlohmann::json::parse(json, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded()) {
    return Result<T>::failure(
        codingError(CodingErrorCode::dataCorrupted, KeyPath(), "the data is not valid JSON"));
  }
  return decodeRecord<T>(parsed);
}

namespace coding_detail {
std::optional<std::string> jsonText(const Result<nlohmann::json>& encoded);
nlohmann::json dictionary(const Result<nlohmann::json>& encoded);
}  // namespace coding_detail

/// A record as UTF-8 JSON text; absent when it cannot be encoded (a value JSON cannot carry, or
/// text that is not UTF-8). The getData() of every document root.
template <Record T>
std::optional<std::string> jsonTextOf(const T& record) {
  return coding_detail::jsonText(encodeRecord(record));
}

/// A record as a string-keyed JSON object, read back from its JSON text exactly as a host would
/// read the bytes; an empty object on any failure. The getDictionary() of every document root.
template <Record T>
nlohmann::json dictionaryOf(const T& record) {
  return coding_detail::dictionary(encodeRecord(record));
}

}  // namespace velk
