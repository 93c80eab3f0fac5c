// Whole numbers from measurements: truncation toward zero into a signed 64-bit integer. A value
// that is not finite or does not fit is a fatal error (message on stderr, then abort), as the
// platform's own conversion traps; it is never clamped.
#pragma once

#include <cstdint>

namespace velk {

std::int64_t truncatedInt64(double value);

}  // namespace velk
