#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "sleep/SleepTestStore.h"
#include "velk/documents/SleepDocument.h"
#include "velk/interface/VelkExtractionManager.h"

namespace velk {
namespace {

using testing::Completions;
using testing::QueueGate;
using testing::sleepSample;
using testing::SleepTestStore;

TEST(ManagerConcurrencyTest, ReleasingTheManagerWhileASleepQueryIsOutDropsTheAnswer) {
  SleepTestStore store(nlohmann::json{
      {"samples", {sleepSample(1, "2024-03-10T01:00:00Z", "2024-03-10T02:00:00Z")}}});
  auto& storeQueue = *store.database().callbackQueue();
  Completions<Result<std::optional<VelkSleepData>>> typed;
  Completions<bool> dictionary;
  {
    QueueGate gate(storeQueue);
    auto manager = std::make_unique<VelkExtractionManager>();
    manager->getSleepSummay(testing::utcDate(2024, 3, 10), typed.completion());
    manager->getSleepSummayObjc(
        testing::utcDate(2024, 3, 10),
        [completion = dictionary.completion()](auto, auto) { completion(true); });
    manager.reset();
  }
  testing::drainQueue(storeQueue);
  EXPECT_EQ(typed.count(), 0u);
  EXPECT_EQ(dictionary.count(), 0u);
  EXPECT_EQ(ExtractionLastDateStorage().readLastDate(VelkDataType::sleepSummary), std::nullopt);
}

TEST(ManagerConcurrencyTest,
     SleepCompletionsArriveOnTheStoresQueueAndTheManagerCanBeSharedByThreads) {
  SleepTestStore store(nlohmann::json{{"samples", nlohmann::json::array()}});
  const auto storeQueue = store.database().callbackQueue();
  VelkExtractionManager manager;
  Completions<bool> onStoreQueue;
  {
    std::jthread first([&] {
      manager.getSleepSummayObjc(testing::utcDate(2024, 3, 10),
                                 [storeQueue, completion = onStoreQueue.completion()](auto, auto) {
                                   completion(storeQueue->isCurrent());
                                 });
    });
    std::jthread second([&] {
      manager.getSleepSummay(testing::utcDate(2024, 3, 11),
                             [storeQueue, completion = onStoreQueue.completion()](auto) {
                               completion(storeQueue->isCurrent());
                             });
      (void)manager.getLastExtractionDateOfSleep();
    });
  }
  testing::drainQueue(*storeQueue);
  EXPECT_EQ(onStoreQueue.values(), (std::vector<bool>{true, true}));
}

}  // namespace
}  // namespace velk
