// Turns a night's raw sleep-analysis samples into SleepAnalysis records: keeps the health app's own
// sources, translates the store's sleep value into a SleepEvent and measures each sample. It
// neither merges, de-duplicates nor orders: every accepted sample becomes exactly one record, so
// two devices that recorded the same minutes are both counted.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/HKSample.h"
#include "sleep/SleepAnalysis.h"

namespace velk {

class SleepAnalysisBuilder {
 public:
  using Samples = std::vector<std::shared_ptr<const platform::HKCategorySample>>;

  virtual ~SleepAnalysisBuilder() = default;

  /// One record per accepted sample, in input order. Which translation applies is decided once per
  /// call from the device's OS version: makeAnalysis from 16.0 on, makeLegacyAnalysis before.
  virtual std::vector<SleepAnalysis> buildSleepAnalyses(const Samples& samples) const;

  /// Systems that know sleep stages: values 0 to 5 (in bed, asleep, awake, core, deep, REM).
  virtual std::optional<SleepAnalysis> makeAnalysis(const platform::HKCategorySample& sample) const;

  /// Older systems: only in bed (0), asleep (1) and awake (2); stage values are dropped.
  virtual std::optional<SleepAnalysis> makeLegacyAnalysis(
      const platform::HKCategorySample& sample) const;
};

}  // namespace velk
