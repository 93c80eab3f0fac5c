#include "body/VelkBodySamples.h"

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
  return platform::samplesOfClass<platform::HKQuantitySample>(*samples);
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
