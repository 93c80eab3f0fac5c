#include "physical/CheckedSum.h"
#include "velk/DebugOutput.h"

namespace velk::physical_detail {

std::int64_t checkedSum(std::int64_t a, std::int64_t b, const char* what) {
  std::int64_t sum = 0;
  if (__builtin_add_overflow(a, b, &sum)) {
    platform::fatalError(std::string(what) + " overflows (" + std::to_string(a) + " + " +
                         std::to_string(b) + ")");
  }
  return sum;
}

}  // namespace velk::physical_detail
