#include "physical/CheckedSum.h"

#include <cstdio>
#include <cstdlib>

namespace velk::physical_detail {

std::int64_t checkedSum(std::int64_t a, std::int64_t b, const char* what) {
  std::int64_t sum = 0;
  if (__builtin_add_overflow(a, b, &sum)) {
    std::fprintf(stderr, "velk: fatal error: %s overflows (%lld + %lld)\n", what,
                 static_cast<long long>(a), static_cast<long long>(b));
    std::abort();
  }
  return sum;
}

}  // namespace velk::physical_detail
