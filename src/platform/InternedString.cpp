#include "platform/InternedString.h"

#include <mutex>
#include <unordered_set>

namespace velk::platform {
namespace {

struct Pool {
  std::mutex mutex;
  // Node-based: the address of an element never changes while the set grows.
  std::unordered_set<std::string> texts;
};

Pool& pool() {
  // Never destroyed: samples held in static objects may still refer to it at exit.
  static Pool* const instance = new Pool;
  return *instance;
}

const std::string* intern(std::string_view text) {
  Pool& p = pool();
  std::lock_guard lock(p.mutex);
  return &*p.texts.emplace(text).first;
}

}  // namespace

InternedString::InternedString() : text_(intern({})) {}

InternedString::InternedString(std::string_view text) : text_(intern(text)) {}

}  // namespace velk::platform
