// The read that the weight and height readers share: the newest quantity samples of one type up to
// a moment, hand-entered ones included.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "body/VelkBodySamples.h"
#include "healthstore/AppleHealthProvider.h"
#include "velk/Date.h"
#include "velk/Result.h"

namespace velk::body_detail {

/// How many samples a body read takes: the newest ten.
inline constexpr std::int64_t bodySummaryQueryLimit = 10;

using MeasurementsCompletion = std::function<void(Result<QuantitySampleList>)>;

/// Asks for the `bodySummaryQueryLimit` newest samples of the quantity type `typeIdentifier`
/// that start before `date`, newest first. Completes with sampleTypeNotAvailable (on the caller's
/// thread, before returning) when the store does not know the type; else on the store's queue with
/// the store's error, or with the samples (an empty list when the store gave none, or samples of
/// another kind). When `reader` has gone by the time the store answers, nothing is called.
void readNewestMeasurements(const AppleHealthProvider& provider, std::string_view typeIdentifier,
                            Date date, std::weak_ptr<const void> reader,
                            MeasurementsCompletion completion);

}  // namespace velk::body_detail
