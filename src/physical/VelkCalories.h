// The day's energy expenditure, as the calorie read delivers it.
#pragma once

#include <cstdint>

namespace velk {

/// Kilocalories of one calendar day. `totalCalories` is always activeCalories + basalCalories;
/// the physical document carries the two parts only.
struct VelkCalories {
  std::int64_t activeCalories = 0;
  std::int64_t basalCalories = 0;
  std::int64_t totalCalories = 0;

  friend bool operator==(const VelkCalories&, const VelkCalories&) = default;
};

}  // namespace velk
