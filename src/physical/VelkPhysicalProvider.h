// The physical summary of a day: five reads at once (calories, steps, heart-rate variability, heart
// rate, resting heart rate), whatever succeeds collected into one builder, the document delivered
// on the main queue once all five have answered.
#pragma once

#include <memory>

#include "extraction/ExtractionLastDateStorage.h"
#include "physical/VelkCaloriesProvider.h"
#include "physical/VelkHRVProvider.h"
#include "physical/VelkHeartRateProvider.h"
#include "physical/VelkPhysicalDataBuilder.h"
#include "physical/VelkStepsProvider.h"
#include "velk/Date.h"
#include "velk/SummaryOwners.h"

namespace velk {

/// Hold it in a std::shared_ptr: the reads reach it through weak references, and a read that
/// answers after it is gone is dropped.
class VelkPhysicalProvider final : public PhysicalSummaryOwner,
                                   public std::enable_shared_from_this<VelkPhysicalProvider> {
 public:
  /// Builds its readers, its builder and its last-date storage. Needs an installed device.
  VelkPhysicalProvider();

  /// Always succeeds, once, on the main queue, after every read has answered. A failed read is
  /// written to the debug output and costs only its own fields, which keep what earlier requests
  /// put there. `date` (unchanged) is stored as the last physical extraction date first. If the
  /// provider is released before every read has answered, the completion is never called.
  void getPhysicalData(Date date, Completion completion) override;

  std::shared_ptr<VelkHeartRateProvider> heartRateProvider;
  std::shared_ptr<VelkStepsProvider> stepsProvider;
  std::shared_ptr<VelkCaloriesProvider> caloriesProvider;
  std::shared_ptr<VelkHRVProvider> hrvProvider;
  VelkPhysicalDataBuilder velkPhysicalBuilder;
  ExtractionLastDateStorage lastDateStorage;
};

}  // namespace velk
