#include "physical/VelkStepSampleProvider.h"

#include <utility>

#include "physical/DaySumQuery.h"
#include "physical/QuantityIdentifiers.h"
#include "platform/HKUnit.h"

namespace velk {

VelkStepSampleProvider::VelkStepSampleProvider()
    : appleHealthPrivider(std::make_shared<AppleHealthProvider>()) {}

void VelkStepSampleProvider::getStepsCount(Date date, Completion completion) const {
  physical_detail::requestDaySum(appleHealthPrivider, predicateBuilder, date,
                                 physical_detail::kStepCount, platform::HKUnit::countUnit(),
                                 std::move(completion));
}

}  // namespace velk
