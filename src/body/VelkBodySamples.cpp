#include "velk/body/VelkBodySamples.h"

namespace velk {

namespace {

template <class Record>
std::vector<Record> makeRecords(const QuantitySampleList& samples, platform::HKUnit unit) {
  std::vector<Record> records;
  records.reserve(samples.size());
  for (const auto& sample : samples) {
    records.push_back(Record{sample->quantity().doubleValueForUnit(unit), sample->startDate(),
                             sample->endDate()});
  }
  return records;
}

}  // namespace

std::optional<QuantitySampleList> asQuantitySamples(
    const std::optional<platform::HKSampleList>& samples) {
  if (!samples.has_value()) {
    return std::nullopt;
  }
  QuantitySampleList quantities;
  quantities.reserve(samples->size());
  for (const auto& sample : *samples) {
    auto quantity = std::dynamic_pointer_cast<const platform::HKQuantitySample>(sample);
    if (!quantity) {
      return std::nullopt;
    }
    quantities.push_back(std::move(quantity));
  }
  return quantities;
}

std::vector<VelkWeightSample> makeWeightSamples(const QuantitySampleList& samples,
                                                platform::HKUnit unit) {
  return makeRecords<VelkWeightSample>(samples, unit);
}

std::vector<VelkHeightSample> makeHeightSamples(const QuantitySampleList& samples,
                                                platform::HKUnit unit) {
  return makeRecords<VelkHeightSample>(samples, unit);
}

}  // namespace velk
