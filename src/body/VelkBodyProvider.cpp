#include "body/VelkBodyProvider.h"

#include <cstdio>
#include <cstdlib>
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

void VelkBodyProvider::getBodySummary(Date date, Completion completion) {
  const std::weak_ptr<VelkBodyProvider> weakSelf = weak_from_this();
  if (weakSelf.expired()) {
    // Without an owner the answers below could never find the provider again; the request would
    // hang silently. That is a mistake in the caller, and it is better found at once.
    std::fputs("VelkBodyProvider::getBodySummary: the provider must be held by a std::shared_ptr\n",
               stderr);
    std::abort();
  }
  platform::DispatchGroup group;

  // The characteristics answer at once, on this thread.
  group.enter();
  auto birthDate = birdhtProvider->getBirthDate();
  if (auto self = weakSelf.lock()) {
    self->setBirthDate(birthDate);
  }
  group.leave();

  group.enter();
  auto biologicalSex = biologicalSexProvider->getBiologicalSex();
  if (auto self = weakSelf.lock()) {
    if (biologicalSex.isSuccess()) {
      self->bodyBuilder.setBiologicalSex(biologicalSex.value());
    } else {
      platform::debugPrint(biologicalSex.error());
    }
  }
  group.leave();

  // The measurements answer on the store's queue. A reader that has gone never answers, and then
  // the group never empties: the request ends there, as the provider itself has gone.
  group.enter();
  weightProvider->getWeight(
      date, [weakSelf, group](Result<std::vector<VelkWeightSample>> samples) mutable {
        if (auto self = weakSelf.lock()) {
          if (samples.isSuccess()) {
            self->bodyBuilder.setWeightSamples(std::move(samples).value());
          } else {
            platform::debugPrint(samples.error());
          }
        }
        group.leave();
      });

  group.enter();
  heightProvider->getHeight(
      date, [weakSelf, group](Result<std::vector<VelkHeightSample>> samples) mutable {
        if (auto self = weakSelf.lock()) {
          if (samples.isSuccess()) {
            self->bodyBuilder.setHeightSamples(std::move(samples).value());
          } else {
            platform::debugPrint(samples.error());
          }
        }
        group.leave();
      });

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

}  // namespace velk
