// Turns a night's raw sleep-analysis samples into SleepAnalysis records: keeps the health app's own
// sources, translates the store's sleep value into a SleepEvent and measures each sample. It
// neither merges, de-duplicates nor orders: every accepted sample becomes exactly one record, so
// two devices that recorded the same minutes are both counted.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/HKSample.h"
#include "sleep/SleepAnalysis.h"
#include "velk/Device.h"

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

  /// Whether samples of the source are read at all: the health app's own sources only (bundle
  /// identifiers containing "com.apple.health"). Other apps' sleep samples are dropped, whatever
  /// their value.
  static bool readsSource(std::string_view bundleIdentifier);

  /// Whether a sleep-analysis value is understood on a system of `version`: 0 to 5 from 16.0 on,
  /// 0 to 2 before.
  static bool understandsValue(std::int64_t value, const platform::OSVersion& version);
};

}  // namespace velk
