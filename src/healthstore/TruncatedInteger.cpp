#include "healthstore/TruncatedInteger.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace velk {

std::int64_t truncatedInt64(double value) {
  // 2^63 is exact in a double; every double below it truncates to a value that fits, and the
  // smallest value that fits, -2^63, is exact too.
  constexpr double kLimit = 9223372036854775808.0;
  const double whole = std::trunc(value);
  if (!std::isfinite(value) || whole >= kLimit || whole < -kLimit) {
    std::fprintf(stderr,
                 "velk: fatal error: %g cannot be converted to a 64-bit integer because it is "
                 "%s\n",
                 value, std::isfinite(value) ? "outside the representable range" : "not finite");
    std::abort();
  }
  return static_cast<std::int64_t>(whole);
}

}  // namespace velk
