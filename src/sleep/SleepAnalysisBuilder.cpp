#include "sleep/SleepAnalysisBuilder.h"

#include <cmath>
#include <cstdint>
#include <string>

#include "velk/Device.h"

namespace velk {

namespace {

// The first system version whose sleep-analysis values include the stages (core, deep, REM).
constexpr platform::OSVersion kSleepStagesVersion{16, 0, 0};

// The store's sleep-analysis values, indexed by value: in bed, asleep (unspecified), awake, core,
// deep, REM. This is not the order of SleepEvent's cases.
constexpr SleepEvent kEventOfValue[] = {SleepEvent::inBed,      SleepEvent::aSleep,
                                        SleepEvent::aWake,      SleepEvent::asleepCore,
                                        SleepEvent::asleepDeep, SleepEvent::asleepREM};
constexpr std::uint64_t kStagedValueCount = 6;
constexpr std::uint64_t kLegacyValueCount = 3;

std::optional<SleepAnalysis> translate(const platform::HKCategorySample& sample,
                                       std::uint64_t knownValueCount) {
  // The filter comes first, so a foreign app's sample is dropped whatever its value.
  if (!SleepAnalysisBuilder::readsSource(sample.sourceBundleIdentifier())) {
    return std::nullopt;
  }
  const double durationSeconds = std::fabs(sample.endDate().timeIntervalSinceReferenceDate() -
                                           sample.startDate().timeIntervalSinceReferenceDate());
  // An unsigned comparison, so that a negative value is rejected with the too-large ones.
  const auto value = static_cast<std::uint64_t>(sample.value());
  if (value >= knownValueCount) {
    return std::nullopt;
  }
  return SleepAnalysis{sample.startDate(), sample.endDate(), kEventOfValue[value], durationSeconds};
}

}  // namespace

// The health app writes under its own bundle identifier, and each paired device under that
// identifier followed by a dot and the device's identifier. The test is a plain substring test,
// not a prefix test, so any identifier that carries the text passes.
bool SleepAnalysisBuilder::readsSource(std::string_view bundleIdentifier) {
  return bundleIdentifier.find("com.apple.health") != std::string_view::npos;
}

bool SleepAnalysisBuilder::understandsValue(std::int64_t value,
                                            const platform::OSVersion& version) {
  const auto known = version >= kSleepStagesVersion ? kStagedValueCount : kLegacyValueCount;
  return value >= 0 && static_cast<std::uint64_t>(value) < known;
}

std::vector<SleepAnalysis> SleepAnalysisBuilder::buildSleepAnalyses(const Samples& samples) const {
  std::vector<SleepAnalysis> analyses;
  if (samples.empty()) {
    return analyses;
  }
  const bool knowsSleepStages = platform::Device::current()->osVersion() >= kSleepStagesVersion;
  analyses.reserve(samples.size());
  for (const auto& sample : samples) {
    std::optional<SleepAnalysis> analysis =
        knowsSleepStages ? makeAnalysis(*sample) : makeLegacyAnalysis(*sample);
    if (analysis) {
      analyses.push_back(*analysis);
    }
  }
  return analyses;
}

std::optional<SleepAnalysis> SleepAnalysisBuilder::makeAnalysis(
    const platform::HKCategorySample& sample) const {
  return translate(sample, kStagedValueCount);
}

std::optional<SleepAnalysis> SleepAnalysisBuilder::makeLegacyAnalysis(
    const platform::HKCategorySample& sample) const {
  return translate(sample, kLegacyValueCount);
}

}  // namespace velk
