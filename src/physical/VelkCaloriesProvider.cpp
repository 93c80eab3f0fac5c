#include "physical/VelkCaloriesProvider.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <utility>

#include "physical/CheckedSum.h"
#include "physical/QuantityIdentifiers.h"
#include "platform/DispatchGroup.h"
#include "velk/Device.h"

namespace velk {

namespace {

// What the two sums leave for the join. Each sum writes its own cell; the error cell is written
// by whichever fails, the later write winning. The lock makes that safe whichever threads the
// store answers on; the join reads only after both have left the group.
struct CalorieCells {
  std::mutex mutex;
  std::optional<Error> error;
  std::int64_t active = 0;
  std::int64_t basal = 0;
};

}  // namespace

void VelkCaloriesProvider::getCalories(Date date, Completion completion) const {
  auto cells = std::make_shared<CalorieCells>();
  platform::DispatchGroup group;

  const auto store = [cells, group](std::int64_t CalorieCells::*cell) {
    return [cells, group, cell](Result<std::int64_t> sum) mutable {
      {
        std::lock_guard lock(cells->mutex);
        if (sum.isSuccess()) {
          (*cells).*cell = sum.value();
        } else {
          cells->error = sum.error();
        }
      }
      group.leave();
    };
  };

  group.enter();
  caloriesSampleProvider->getEnergyBurned(date, physical_detail::kActiveEnergyBurned,
                                          store(&CalorieCells::active));
  group.enter();
  caloriesSampleProvider->getEnergyBurned(date, physical_detail::kBasalEnergyBurned,
                                          store(&CalorieCells::basal));

  group.notify(
      platform::Device::current()->mainQueue(), [cells, completion = std::move(completion)] {
        std::unique_lock lock(cells->mutex);
        if (cells->error) {
          const Error error = *cells->error;
          lock.unlock();
          return completion(Result<VelkCalories>::failure(error));
        }
        const VelkCalories calories{
            cells->active, cells->basal,
            physical_detail::checkedSum(cells->active, cells->basal, "the day's calories")};
        lock.unlock();
        completion(Result<VelkCalories>::success(calories));
      });
}

}  // namespace velk
