#include "platform/InternedString.h"

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_set>

namespace velk::platform {
namespace {

// Looks texts up without making a std::string of them first.
struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>{}(text);
  }
};

struct Pool {
  std::mutex mutex;
  // Node-based: the address of an element never changes while the set grows.
  std::unordered_set<std::string, TextHash, std::equal_to<>> texts;
};

Pool& pool() {
  // Never destroyed: samples held in static objects may still refer to it at exit.
  static Pool* const instance = new Pool;
  return *instance;
}

const std::string* intern(std::string_view text) {
  Pool& p = pool();
  std::lock_guard lock(p.mutex);
  if (const auto found = p.texts.find(text); found != p.texts.end()) {
    return &*found;
  }
  return &*p.texts.emplace(text).first;
}

// Every default-made string (three in each sample a database hands out) is the empty text.
const std::string* emptyText() {
  static const std::string* const empty = intern({});
  return empty;
}

}  // namespace

InternedString::InternedString() : text_(emptyText()) {}

InternedString::InternedString(std::string_view text) : text_(intern(text)) {}

}  // namespace velk::platform
