// Builds a record with every field present and every value distinct, by walking the same key
// tables that the coding walks: optionals are set, lists hold two elements, numbers count up and
// every other date carries a fraction of a second. A document filled this way reaches every
// record type and every key.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "velk/documents/Codable.h"
#include "velk/platform/Date.h"

namespace velk::testing {

class RecordFiller {
 public:
  template <class T>
  T make() {
    T value{};
    fill(value);
    return value;
  }

 private:
  template <class T>
  void fill(T& value) {
    if constexpr (Record<T>) {
      std::apply([&](const auto&... entries) { (fill(value.*(entries.member)), ...); }, T::fields);
    } else if constexpr (coding_detail::IsOptional<T>::value) {
      value.emplace();
      fill(*value);
    } else if constexpr (coding_detail::IsVector<T>::value) {
      value.resize(2);
      fill(value[0]);
      fill(value[1]);
    } else if constexpr (std::is_same_v<T, Date>) {
      // 2024-03-10T00:00:00Z plus one hour per date, and a quarter second on every other one.
      const std::int64_t n = ++counter_;
      const double fraction = n % 2 == 0 ? 0.25 : 0.0;
      value = Date::fromReferenceSeconds(731808000.0 + 3600.0 * static_cast<double>(n) + fraction);
    } else if constexpr (std::is_same_v<T, std::int64_t>) {
      value = ++counter_;
    } else {
      static_assert(std::is_same_v<T, std::string>);
      value = "text " + std::to_string(++counter_);
    }
  }

  std::int64_t counter_ = 0;
};

}  // namespace velk::testing
