#include "physical/VelkPhysicalProvider.h"

#include <utility>

#include "platform/DispatchGroup.h"
#include "velk/DebugOutput.h"
#include "velk/Device.h"
#include "velk/VelkDataType.h"

namespace velk {

namespace {

// The answer handler of one read: while the provider lives, a value goes into the builder through
// `store` and an error to the debug output; in every case the read leaves the group, so that a
// failed read never holds up the document.
template <class Value, class Store>
auto answerHandler(std::weak_ptr<VelkPhysicalProvider> weakProvider, platform::DispatchGroup group,
                   Store store) {
  return [weakProvider = std::move(weakProvider), group, store](Result<Value> answer) mutable {
    if (auto provider = weakProvider.lock()) {
      if (answer.isSuccess()) {
        store(provider->velkPhysicalBuilder, std::move(answer).value());
      } else {
        platform::debugPrint(answer.error());
      }
    }
    group.leave();
  };
}

}  // namespace

VelkPhysicalProvider::VelkPhysicalProvider()
    : heartRateProvider(std::make_shared<VelkHeartRateProvider>()),
      stepsProvider(std::make_shared<VelkStepsProvider>()),
      caloriesProvider(std::make_shared<VelkCaloriesProvider>()),
      hrvProvider(std::make_shared<VelkHRVProvider>()) {}

void VelkPhysicalProvider::getPhysicalData(Date date, Completion completion) {
  platform::DispatchGroup group;
  const std::weak_ptr<VelkPhysicalProvider> weakSelf = weak_from_this();

  group.enter();
  caloriesProvider->getCalories(
      date, answerHandler<VelkCalories>(weakSelf, group, [](auto& builder, VelkCalories value) {
        builder.setCaloriesData(value);
      }));

  group.enter();
  stepsProvider->velkStepSampleProvider->getStepsCount(
      date, answerHandler<std::int64_t>(weakSelf, group, [](auto& builder, std::int64_t value) {
        builder.setTotalSteps(value);
      }));

  group.enter();
  hrvProvider->getHRV(
      date, answerHandler<VelkHRVData>(weakSelf, group, [](auto& builder, VelkHRVData value) {
        builder.setHrvData(std::move(value));
      }));

  group.enter();
  heartRateProvider->getHeartRate(
      date,
      answerHandler<VelkHeartRateData>(weakSelf, group, [](auto& builder, VelkHeartRateData value) {
        builder.setHeartRateData(std::move(value));
      }));

  group.enter();
  heartRateProvider->getRestingHeartRate(
      date,
      answerHandler<VelkRestingHrData>(weakSelf, group, [](auto& builder, VelkRestingHrData value) {
        builder.setRestingHrData(std::move(value));
      }));

  group.notify(platform::Device::current()->mainQueue(),
               [weakSelf, date, completion = std::move(completion)] {
                 const auto self = weakSelf.lock();
                 if (!self) {
                   return;
                 }
                 // Stored on every request, whatever the reads gave.
                 self->lastDateStorage.storeLastDate(date, VelkDataType::physicalSummary);
                 VelkPhysicalData document;
                 document.summaries = self->velkPhysicalBuilder.buildPhysicalSummaries(date);
                 completion(Result<VelkPhysicalData>::success(std::move(document)));
               });
}

}  // namespace velk
