// The body summary of a requested date: the user's date of birth, biological sex and newest
// weight and height, in the body document.
//
// The four reads run side by side; their values collect in one builder that lives as long as the
// provider, so a read that fails leaves the value of an earlier request in place. A failed read is
// only written to the debug output: the body summary always completes with success, on the main
// queue, after storing the requested date as the last body extraction date.
//
// Hold the provider in a std::shared_ptr (the constructor's callers use std::make_shared): the
// store's answers hold it weakly. If it is released while a weight or height read is out, that
// read never answers and the completion is never called.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "body/VelkBiologicalSexProvider.h"
#include "body/VelkBirthProvider.h"
#include "body/VelkBodyDataBuilder.h"
#include "body/VelkHeightProvider.h"
#include "body/VelkWeightProvider.h"
#include "extraction/ExtractionLastDateStorage.h"
#include "platform/DispatchGroup.h"
#include "velk/Date.h"
#include "velk/Result.h"
#include "velk/SummaryOwners.h"

namespace velk {

class VelkBodyProvider final : public BodySummaryOwner,
                               public std::enable_shared_from_this<VelkBodyProvider> {
 public:
  /// Builds the four readers (each with its own health store), an empty builder and a last-date
  /// storage over the device's standard user defaults. Needs an installed device.
  VelkBodyProvider();

  VelkBodyProvider(const VelkBodyProvider&) = delete;
  VelkBodyProvider& operator=(const VelkBodyProvider&) = delete;

  /// The body document for `date`: always success, always on the main queue. The characteristic
  /// reads run on the caller's thread before this returns.
  void getBodySummary(Date date, Completion completion) override;

  /// Takes the outcome of a date-of-birth read: a success replaces the stored date (an absent date
  /// clears it); a failure is debug-printed and leaves it as it was.
  void setBirthDate(const Result<std::optional<Date>>& result);

 private:
  // The date of birth and the biological sex, read on this thread inside `group`.
  void readCharacteristics(platform::DispatchGroup& group);
  // The newest weight and height up to `date`, read on the store's queue; each leaves `group`
  // when it has answered.
  void readMeasurements(Date date, platform::DispatchGroup& group);
  void setWeightSamples(std::vector<VelkWeightSample> samples);
  void setHeightSamples(std::vector<VelkHeightSample> samples);

  // Built in this order and never replaced. The readers are shared so that their store answers can
  // hold them weakly.
  std::shared_ptr<VelkBirthProvider> birdhtProvider;
  std::shared_ptr<VelkBiologicalSexProvider> biologicalSexProvider;
  std::shared_ptr<VelkWeightProvider> weightProvider;
  std::shared_ptr<VelkHeightProvider> heightProvider;
  VelkBodyDataBuilder bodyBuilder;
  ExtractionLastDateStorage lastDateStorage;
};

}  // namespace velk
