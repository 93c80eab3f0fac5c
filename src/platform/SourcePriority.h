// The order in which the health store trusts the sources of one quantity when their samples
// overlap in time.
//
// A phone and a watch worn together both count the same steps. The platform does not add both:
// where samples of several sources cover the same moment, only the most trusted source counts
// there. The default order, most trusted first:
//
//  1. Samples typed in by hand (metadata HKWasUserEntered = true), whatever app wrote them: the
//     user meant that number.
//  2. Sources the user listed (`preferred`), in the listed order.
//  3. The health store's own sources on the phone and the watch and the Health app: bundle
//     identifiers containing "com.apple.health". Among them a source whose identifier names a
//     watch comes first, since the watch is worn while the phone lies on a desk; then the rest.
//  4. Every other app.
//
// Sources of one rank are ordered by bundle identifier, so that the order never depends on the
// order of the samples.
#pragma once

#include <string>
#include <vector>

#include "platform/InternedString.h"

namespace velk::platform {

/// What the order looks at: a sample's source and whether it was typed in by hand. Samples typed
/// in by hand form a source of their own beside the app's other samples.
struct SampleOrigin {
  InternedString source;
  bool userEntered = false;

  friend bool operator==(const SampleOrigin&, const SampleOrigin&) = default;
};

class SourcePriority {
 public:
  /// The default order.
  SourcePriority() = default;
  /// The default order with the listed bundle identifiers placed first after hand-entered data.
  explicit SourcePriority(std::vector<std::string> preferred);

  /// True when `a` is trusted before `b`; a strict total order over distinct origins.
  bool precedes(const SampleOrigin& a, const SampleOrigin& b) const;

  const std::vector<std::string>& preferred() const { return preferred_; }

 private:
  struct Key {
    int tier;
    std::size_t position;
  };
  Key keyOf(const SampleOrigin& origin) const;

  std::vector<std::string> preferred_;
};

}  // namespace velk::platform
