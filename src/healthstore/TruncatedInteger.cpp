#include "healthstore/TruncatedInteger.h"

#include <cmath>
#include <cstdio>
#include <string>

#include "velk/DebugOutput.h"

namespace velk {

std::int64_t truncatedInt64(double value) {
  // 2^63 is exact in a double; every double below it truncates to a value that fits, and the
  // smallest value that fits, -2^63, is exact too.
  constexpr double kLimit = 9223372036854775808.0;
  const double whole = std::trunc(value);
  if (!std::isfinite(value) || whole >= kLimit || whole < -kLimit) {
    char written[32];
    std::snprintf(written, sizeof written, "%g", value);
    platform::fatalError(std::string(written) +
                         " cannot be converted to a 64-bit integer because it is " +
                         (std::isfinite(value) ? "outside the representable range" : "not finite"));
  }
  return static_cast<std::int64_t>(whole);
}

}  // namespace velk
