// The day's total of one kind of energy, summed by the health store.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "healthstore/AppleHealthProvider.h"
#include "healthstore/VelkPredicateBuilder.h"
#include "velk/Date.h"
#include "velk/Result.h"

namespace velk {

class VelkCaloriesSampleProvider {
 public:
  using Completion = std::function<void(Result<std::int64_t>)>;

  VelkCaloriesSampleProvider();

  /// Kilocalories of the quantity type `identifier` (active or basal energy) on the day of `date`,
  /// truncated toward zero; the same window, filter and failures as the step count. The
  /// completion is called exactly once.
  void getEnergyBurned(Date date, std::string_view identifier, Completion completion) const;

  std::shared_ptr<AppleHealthProvider> appleHealthPrivider;
  VelkPredicateBuilder predicateBuilder;
};

}  // namespace velk
