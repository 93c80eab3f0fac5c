// A two-way outcome handed to completions: success with a value, or failure with an Error.
// Operations that give back nothing on success return a Status (Result<void>).
#pragma once

#include <cassert>
#include <optional>
#include <utility>
#include <variant>

#include "velk/Error.h"

namespace velk {

template <class T>
class Result {
 public:
  static Result success(T value) { return Result(std::in_place_index<0>, std::move(value)); }
  static Result failure(Error error) { return Result(std::in_place_index<1>, std::move(error)); }

  bool isSuccess() const { return state_.index() == 0; }
  bool isFailure() const { return state_.index() == 1; }

  const T& value() const& {
    assert(isSuccess());
    return std::get<0>(state_);
  }
  T&& value() && {
    assert(isSuccess());
    return std::get<0>(std::move(state_));
  }
  const Error& error() const {
    assert(isFailure());
    return std::get<1>(state_);
  }

 private:
  template <std::size_t I, class V>
  Result(std::in_place_index_t<I> index, V&& v) : state_(index, std::forward<V>(v)) {}
  std::variant<T, Error> state_;
};

/// The outcome of an operation that gives back nothing: success, or failure with an Error.
template <>
class Result<void> {
 public:
  static Result success() { return Result(std::nullopt); }
  static Result failure(Error error) { return Result(std::move(error)); }

  bool isSuccess() const { return !error_.has_value(); }
  bool isFailure() const { return error_.has_value(); }

  const Error& error() const {
    assert(isFailure());
    return *error_;
  }

 private:
  explicit Result(std::optional<Error> error) : error_(std::move(error)) {}
  std::optional<Error> error_;
};

using Status = Result<void>;

}  // namespace velk
