#include "physical/VelkCaloriesSampleProvider.h"

#include <utility>

#include "physical/DaySumQuery.h"
#include "platform/HKUnit.h"

namespace velk {

VelkCaloriesSampleProvider::VelkCaloriesSampleProvider()
    : appleHealthPrivider(std::make_shared<AppleHealthProvider>()) {}

void VelkCaloriesSampleProvider::getEnergyBurned(Date date, std::string_view identifier,
                                                 Completion completion) const {
  physical_detail::requestDaySum(appleHealthPrivider, predicateBuilder, date, identifier,
                                 platform::HKUnit::kilocalorieUnit(), std::move(completion));
}

}  // namespace velk
