// The bytes of a part of an export's body. Growing them leaves the new room as it is: a read
// fills it straight away, and zeroing every byte of a file before reading it cost 4% of an
// import's CPU time. (A vector with a default-initialising allocator does the same in optimised
// builds, but constructs byte by byte in the others: the fuzzer ran three times slower.)
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace velk::ingest {

class PartBytes {
 public:
  PartBytes() = default;
  PartBytes(PartBytes&& other) noexcept { *this = std::move(other); }
  /// Takes `other`'s bytes; it is left empty.
  PartBytes& operator=(PartBytes&& other) noexcept {
    bytes_ = std::move(other.bytes_);
    size_ = std::exchange(other.size_, 0);
    capacity_ = std::exchange(other.capacity_, 0);
    return *this;
  }

  char* data() { return bytes_.get(); }
  const char* data() const { return bytes_.get(); }
  std::size_t size() const { return size_; }

  /// Makes the size `size`; bytes added are not initialised.
  void resize(std::size_t size) {
    reserve(size);
    size_ = size;
  }

  void reserve(std::size_t capacity) {
    if (capacity <= capacity_) {
      return;
    }
    capacity = std::max(capacity, 2 * capacity_);
    auto grown = std::make_unique_for_overwrite<char[]>(capacity);
    if (size_ > 0) {
      std::memcpy(grown.get(), bytes_.get(), size_);
    }
    bytes_ = std::move(grown);
    capacity_ = capacity;
  }

  void clear() { size_ = 0; }

  void assign(std::string_view text) {
    resize(text.size());
    if (!text.empty()) {
      std::memcpy(bytes_.get(), text.data(), text.size());
    }
  }

 private:
  std::unique_ptr<char[]> bytes_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

inline std::string_view viewOf(const PartBytes& bytes) {
  return {bytes.data(), bytes.size()};
}

}  // namespace velk::ingest
