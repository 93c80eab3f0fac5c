#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "sleep/SleepTestStore.h"
#include "velk/documents/SleepDocument.h"
#include "velk/sleep/SleepRepository.h"

namespace velk {
namespace {

using SleepResult = Result<std::optional<VelkSleepData>>;
using Json = nlohmann::json;

// Releases the repository while the store's queue is held, so that the answer comes after.
std::vector<SleepResult> requestAndRelease(testing::SleepTestStore& store) {
  auto& storeQueue = *store.database().callbackQueue();
  testing::Completions<SleepResult> completions;
  {
    testing::QueueGate gate(storeQueue);
    auto repository = SleepRepository::make();
    repository->getSleepData(testing::utcDate(2024, 3, 10), completions.completion());
    repository.reset();
  }
  testing::drainQueue(storeQueue);
  return completions.values();
}

TEST(SleepRepositoryConcurrencyTest, AReleasedRepositoryDropsASuccessButPassesAFailureOn) {
  {
    testing::SleepTestStore store(Json{
        {"samples", {testing::sleepSample(1, "2024-03-10T01:00:00Z", "2024-03-10T02:00:00Z")}}});
    EXPECT_TRUE(requestAndRelease(store).empty());
    EXPECT_EQ(ExtractionLastDateStorage().readLastDate(VelkDataType::sleepSummary), std::nullopt);
  }
  {
    testing::SleepTestStore store(
        Json{{"query_errors",
              {{"HKCategoryTypeIdentifierSleepAnalysis", {{"code", 4}, {"message", "locked"}}}}}});
    const std::vector<SleepResult> results = requestAndRelease(store);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].error().message(), "locked");
  }
}

TEST(SleepRepositoryConcurrencyTest, RequestsFromSeveralThreadsEachCompleteOnceOnTheStoresQueue) {
  testing::SleepTestStore store(Json{{"samples", Json::array()}});
  const auto storeQueue = store.database().callbackQueue();
  const auto repository = SleepRepository::make();
  testing::Completions<bool> onStoreQueue;
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&, i] {
        repository->getSleepData(testing::utcDate(2024, 3, 10 + i),
                                 [storeQueue, done = onStoreQueue.completion()](SleepResult) {
                                   done(storeQueue->isCurrent());
                                 });
      });
    }
  }
  testing::drainQueue(*storeQueue);
  EXPECT_EQ(onStoreQueue.values(), std::vector<bool>(4, true));
}

}  // namespace
}  // namespace velk
