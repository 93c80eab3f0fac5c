// The unit in which the health store keeps and sums each quantity type it knows (steps in count,
// energy in kcal, heart rate in count/min ...). Samples recorded in another unit of the same
// dimension are converted into it for statistics; store files use it where a sample names none.
#pragma once

#include <optional>
#include <string_view>

#include "platform/HKUnit.h"

namespace velk::platform {

/// Absent for a type whose unit this store does not fix.
std::optional<HKUnit> canonicalUnitForQuantityType(std::string_view identifier);

}  // namespace velk::platform
