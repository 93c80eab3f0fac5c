#include "body/VelkBodyProvider.h"

#include <utility>
#include <vector>

#include "platform/DispatchGroup.h"
#include "velk/DebugOutput.h"
#include "velk/Device.h"
#include "velk/VelkDataType.h"

namespace velk {

VelkBodyProvider::VelkBodyProvider()
    : birdhtProvider(std::make_shared<VelkBirthProvider>()),
      biologicalSexProvider(std::make_shared<VelkBiologicalSexProvider>()),
      weightProvider(std::make_shared<VelkWeightProvider>()),
      heightProvider(std::make_shared<VelkHeightProvider>()) {}

void VelkBodyProvider::setBirthDate(const Result<std::optional<Date>>& result) {
  if (result.isFailure()) {
    platform::debugPrint(result.error());
    return;
  }
  bodyBuilder.setBirthDate(result.value());
}

namespace {

// The completion of a weight or height read: while the provider lives, its samples go to the
// builder through `set` (a failure is only debug-printed); then the read leaves the group.
template <class Sample>
auto measurementCompletion(std::weak_ptr<VelkBodyProvider> weakSelf, platform::DispatchGroup group,
                           void (VelkBodyProvider::*set)(std::vector<Sample>)) {
  return [weakSelf = std::move(weakSelf), group, set](Result<std::vector<Sample>> samples) mutable {
    if (auto self = weakSelf.lock()) {
      if (samples.isSuccess()) {
        ((*self).*set)(std::move(samples).value());
      } else {
        platform::debugPrint(samples.error());
      }
    }
    group.leave();
  };
}

}  // namespace

void VelkBodyProvider::getBodySummary(Date date, Completion completion) {
  const std::weak_ptr<VelkBodyProvider> weakSelf = weak_from_this();
  if (weakSelf.expired()) {
    // Without an owner the answers below could never find the provider again; the request would
    // hang silently. That is a mistake in the caller, and it is better found at once.
    platform::fatalError(
        "VelkBodyProvider::getBodySummary: the provider must be held by a std::shared_ptr");
  }
  platform::DispatchGroup group;
  readCharacteristics(group);
  readMeasurements(date, group);
  group.notify(platform::Device::current()->mainQueue(),
               [weakSelf, date, completion = std::move(completion)] {
                 auto self = weakSelf.lock();
                 if (!self) {
                   return;
                 }
                 // The date is recorded whatever the reads returned, and before the document is
                 // built from them.
                 self->lastDateStorage.storeLastDate(date, VelkDataType::bodySummary);
                 completion(Result<VelkBodyData>::success(self->bodyBuilder.build(date)));
               });
}

void VelkBodyProvider::readCharacteristics(platform::DispatchGroup& group) {
  // The characteristics answer at once, on this thread.
  group.enter();
  setBirthDate(birdhtProvider->getBirthDate());
  group.leave();

  group.enter();
  auto biologicalSex = biologicalSexProvider->getBiologicalSex();
  if (biologicalSex.isSuccess()) {
    bodyBuilder.setBiologicalSex(biologicalSex.value());
  } else {
    platform::debugPrint(biologicalSex.error());
  }
  group.leave();
}

void VelkBodyProvider::readMeasurements(Date date, platform::DispatchGroup& group) {
  // The measurements answer on the store's queue. A reader that has gone never answers, and then
  // the group never empties: the request ends there, as the provider itself has gone.
  group.enter();
  weightProvider->getWeight(
      date, measurementCompletion(weak_from_this(), group, &VelkBodyProvider::setWeightSamples));
  group.enter();
  heightProvider->getHeight(
      date, measurementCompletion(weak_from_this(), group, &VelkBodyProvider::setHeightSamples));
}

void VelkBodyProvider::setWeightSamples(std::vector<VelkWeightSample> samples) {
  bodyBuilder.setWeightSamples(std::move(samples));
}

void VelkBodyProvider::setHeightSamples(std::vector<VelkHeightSample> samples) {
  bodyBuilder.setHeightSamples(std::move(samples));
}

}  // namespace velk
