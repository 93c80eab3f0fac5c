// The raw body measurements that the weight and height readers hand to the body summary: one
// record per health-store sample, in the store's order (newest first), with the value in the
// reader's unit exactly as the store gave it (no rounding; the document truncates later).
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/HKSample.h"
#include "platform/HKSampleQuery.h"
#include "platform/HKUnit.h"
#include "velk/Date.h"

namespace velk {

/// Body mass in kilograms.
struct VelkWeightSample {
  double value = 0;
  Date startDate;
  Date endDate;
  bool operator==(const VelkWeightSample&) const = default;
};

/// Height in centimetres.
struct VelkHeightSample {
  double value = 0;
  Date startDate;
  Date endDate;
  bool operator==(const VelkHeightSample&) const = default;
};

using QuantitySampleList = std::vector<std::shared_ptr<const platform::HKQuantitySample>>;

/// The samples as quantity samples, in the same order; absent when the list is absent or holds a
/// sample of another kind (a reader then reports an empty list, not an error).
std::optional<QuantitySampleList> asQuantitySamples(
    const std::optional<platform::HKSampleList>& samples);

/// One record per sample, in the same order, each value expressed in `unit`.
std::vector<VelkWeightSample> makeWeightSamples(const QuantitySampleList& samples,
                                                platform::HKUnit unit);
std::vector<VelkHeightSample> makeHeightSamples(const QuantitySampleList& samples,
                                                platform::HKUnit unit);

}  // namespace velk
