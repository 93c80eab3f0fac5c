// The one-day cumulative sum that the step and the energy reads share: a statistics collection
// query with one-day intervals, summed by the health store and handed back as a whole number.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "healthstore/AppleHealthProvider.h"
#include "healthstore/VelkPredicateBuilder.h"
#include "platform/HKUnit.h"
#include "velk/Date.h"
#include "velk/Result.h"

namespace velk::physical_detail {

using DaySumCompletion = std::function<void(Result<std::int64_t>)>;

/// Sums the samples of the quantity type `identifier` on the day of `date`, in `unit`, truncated
/// toward zero. The completion is called exactly once: on the caller's thread when the query
/// cannot be built, otherwise on the health store's queue. `provider` is held until it answers.
void requestDaySum(std::shared_ptr<AppleHealthProvider> provider,
                   const VelkPredicateBuilder& predicateBuilder, Date date,
                   std::string_view identifier, platform::HKUnit unit, DaySumCompletion completion);

}  // namespace velk::physical_detail
