// Interned strings: one shared copy of each distinct text, referred to by a pointer.
//
// A health database holds millions of samples but only a few dozen distinct type identifiers,
// unit texts and source names. Each sample refers to its texts through an InternedString, eight
// bytes, and compares them by pointer. The pool lives for the whole process and never shrinks,
// so an InternedString stays valid after the database that made it is gone.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace velk::platform {

class InternedString {
 public:
  /// The empty text.
  InternedString();
  /// The pooled copy of `text` (made on first use). Safe to call from any thread.
  explicit InternedString(std::string_view text);

  const std::string& str() const { return *text_; }
  bool empty() const { return text_->empty(); }

  friend bool operator==(InternedString a, InternedString b) { return a.text_ == b.text_; }
  /// Orders by text, so that ordered containers do not depend on pool addresses.
  friend std::strong_ordering operator<=>(InternedString a, InternedString b) {
    return a.text_ == b.text_ ? std::strong_ordering::equal : a.str().compare(b.str()) <=> 0;
  }

  std::size_t hash() const { return std::hash<const void*>{}(text_); }

 private:
  const std::string* text_;
};

}  // namespace velk::platform

template <>
struct std::hash<velk::platform::InternedString> {
  std::size_t operator()(velk::platform::InternedString s) const { return s.hash(); }
};
