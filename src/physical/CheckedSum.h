// Sums of whole numbers that stop the process on overflow instead of wrapping around: a wrapped
// total would hand a host a number that was never measured.
#pragma once

#include <cstdint>

namespace velk::physical_detail {

/// a + b; on overflow writes a message naming `what` to stderr and stops the process.
std::int64_t checkedSum(std::int64_t a, std::int64_t b, const char* what);

}  // namespace velk::physical_detail
