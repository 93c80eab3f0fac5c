#include <gtest/gtest.h>

#include <memory>

#include "sleep/SleepTestStore.h"
#include "velk/documents/SleepDocument.h"
#include "velk/interface/VelkExtractionManager.h"

namespace velk {
namespace {

TEST(ManagerConcurrencyTest, ReleasingTheManagerWhileASleepQueryIsOutDropsTheAnswer) {
  testing::SleepTestStore store(nlohmann::json{
      {"samples", {testing::sleepSample(1, "2024-03-10T01:00:00Z", "2024-03-10T02:00:00Z")}}});
  auto& storeQueue = *store.database().callbackQueue();
  testing::Completions<bool> called;
  {
    testing::QueueGate gate(storeQueue);
    auto manager = std::make_unique<VelkExtractionManager>();
    manager->getSleepSummay(testing::utcDate(2024, 3, 10),
                            [done = called.completion()](auto) { done(true); });
    manager->getSleepSummayObjc(testing::utcDate(2024, 3, 10),
                                [done = called.completion()](auto, auto) { done(true); });
    manager.reset();
  }
  testing::drainQueue(storeQueue);
  EXPECT_TRUE(called.values().empty());
  EXPECT_EQ(ExtractionLastDateStorage().readLastDate(VelkDataType::sleepSummary), std::nullopt);
}

}  // namespace
}  // namespace velk
