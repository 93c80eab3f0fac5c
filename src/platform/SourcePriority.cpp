#include "platform/SourcePriority.h"

#include <algorithm>
#include <cctype>
#include <tuple>

namespace velk::platform {
namespace {

constexpr std::string_view kHealthStoreSources = "com.apple.health";

bool namesWatch(const std::string& identifier) {
  std::string lower(identifier);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower.find("watch") != std::string::npos;
}

}  // namespace

SourcePriority::SourcePriority(std::vector<std::string> preferred)
    : preferred_(std::move(preferred)) {}

SourcePriority::Key SourcePriority::keyOf(const SampleOrigin& origin) const {
  if (origin.userEntered) {
    return {0, 0};
  }
  const std::string& identifier = origin.source.str();
  if (const auto listed = std::find(preferred_.begin(), preferred_.end(), identifier);
      listed != preferred_.end()) {
    return {1, static_cast<std::size_t>(listed - preferred_.begin())};
  }
  if (identifier.find(kHealthStoreSources) != std::string::npos) {
    return {namesWatch(identifier) ? 2 : 3, 0};
  }
  return {4, 0};
}

bool SourcePriority::precedes(const SampleOrigin& a, const SampleOrigin& b) const {
  const Key x = keyOf(a);
  const Key y = keyOf(b);
  return std::tie(x.tier, x.position, a.source) < std::tie(y.tier, y.position, b.source);
}

}  // namespace velk::platform
