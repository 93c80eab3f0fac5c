// The bytes of a part of an export's body. Growing them leaves the new room as it is: a read
// fills it straight away, and zeroing every byte of a file before reading it cost 4% of an
// import's CPU time.
#pragma once

#include <memory>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace velk::ingest {

/// std::allocator, except that it default-initialises where std::allocator value-initialises.
template <typename T>
class UninitializedAllocator : public std::allocator<T> {
 public:
  template <typename U>
  struct rebind {
    using other = UninitializedAllocator<U>;
  };

  UninitializedAllocator() noexcept = default;
  template <typename U>
  UninitializedAllocator(const UninitializedAllocator<U>&) noexcept {}  // NOLINT: as std's

  template <typename U>
  void construct(U* place) noexcept(std::is_nothrow_default_constructible_v<U>) {
    ::new (static_cast<void*>(place)) U;
  }
  template <typename U, typename... Args>
  void construct(U* place, Args&&... args) {
    ::new (static_cast<void*>(place)) U(std::forward<Args>(args)...);
  }
};

using PartBytes = std::vector<char, UninitializedAllocator<char>>;

inline std::string_view viewOf(const PartBytes& bytes) {
  return {bytes.data(), bytes.size()};
}

}  // namespace velk::ingest
