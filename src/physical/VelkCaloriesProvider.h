// The day's energy: the active and the basal sums, read at the same time and joined.
#pragma once

#include <functional>
#include <memory>

#include "physical/VelkCalories.h"
#include "physical/VelkCaloriesSampleProvider.h"
#include "velk/Date.h"
#include "velk/Result.h"

namespace velk {

class VelkCaloriesProvider {
 public:
  using Completion = std::function<void(Result<VelkCalories>)>;

  VelkCaloriesProvider() : caloriesSampleProvider(std::make_shared<VelkCaloriesSampleProvider>()) {}

  /// Both sums of the day of `date`, on the main queue, once both have answered. One failing sum
  /// fails the whole result (with the error of the sum that failed last): there is no partial
  /// VelkCalories. A total beyond the 64-bit range stops the process.
  void getCalories(Date date, Completion completion) const;

  std::shared_ptr<VelkCaloriesSampleProvider> caloriesSampleProvider;
};

}  // namespace velk
