// The sample query that the heart-rate, resting-heart-rate and variability reads share: every
// sample of one quantity type that overlaps the physical window of a day, none typed in by hand.
#pragma once

#include <optional>
#include <string_view>

#include "healthstore/AppleHealthProvider.h"
#include "healthstore/VelkPredicateBuilder.h"
#include "velk/Date.h"
#include "velk/Error.h"

namespace velk::physical_detail {

/// Starts the query and returns nothing, or returns the error that kept it from starting
/// (sampleTypeNotAvailable, predicateErrorDate) without calling `handler`.
std::optional<Error> requestDaySamples(AppleHealthProvider& provider,
                                       const VelkPredicateBuilder& predicateBuilder, Date date,
                                       std::string_view identifier,
                                       AppleHealthProvider::SamplesCompletion handler);

}  // namespace velk::physical_detail
