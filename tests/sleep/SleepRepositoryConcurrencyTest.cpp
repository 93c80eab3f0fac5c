#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "sleep/SleepTestStore.h"
#include "velk/documents/SleepDocument.h"
#include "velk/interface/ExtractionLastDateStorage.h"
#include "velk/platform/HealthDatabase.h"
#include "velk/sleep/SleepRepository.h"

namespace velk {
namespace {

using testing::Completions;
using testing::QueueGate;
using testing::sleepSample;
using testing::SleepTestStore;
using SleepResult = Result<std::optional<VelkSleepData>>;

std::optional<Date> storedSleepDate() {
  return ExtractionLastDateStorage().readLastDate(VelkDataType::sleepSummary);
}

TEST(SleepRepositoryConcurrencyTest, AnswersArriveOnTheStoresQueueNotTheCallersThread) {
  SleepTestStore store(nlohmann::json{{"samples", nlohmann::json::array()}});
  const auto repository = SleepRepository::make();
  Completions<bool> onStoreQueue;
  const auto storeQueue = store.database().callbackQueue();
  repository->getSleepData(testing::utcDate(2024, 3, 10),
                           [storeQueue, completion = onStoreQueue.completion()](SleepResult) {
                             completion(storeQueue->isCurrent());
                           });
  EXPECT_EQ(onStoreQueue.wait(), true);
}

TEST(SleepRepositoryConcurrencyTest, ARepositoryReleasedBeforeASuccessfulAnswerDropsIt) {
  SleepTestStore store(nlohmann::json{
      {"samples", {sleepSample(1, "2024-03-10T01:00:00Z", "2024-03-10T02:00:00Z")}}});
  auto& storeQueue = *store.database().callbackQueue();
  Completions<SleepResult> completions;
  {
    QueueGate gate(storeQueue);  // the store cannot answer until the gate opens
    auto repository = SleepRepository::make();
    repository->getSleepData(testing::utcDate(2024, 3, 10), completions.completion());
    repository.reset();
  }
  testing::drainQueue(storeQueue);
  EXPECT_EQ(completions.count(), 0u);
  EXPECT_EQ(storedSleepDate(), std::nullopt);
}

TEST(SleepRepositoryConcurrencyTest, ARepositoryReleasedBeforeAFailedAnswerStillPassesTheErrorOn) {
  SleepTestStore store(nlohmann::json{
      {"query_errors",
       {{"HKCategoryTypeIdentifierSleepAnalysis", {{"code", 4}, {"message", "locked"}}}}}});
  auto& storeQueue = *store.database().callbackQueue();
  Completions<SleepResult> completions;
  {
    QueueGate gate(storeQueue);
    auto repository = SleepRepository::make();
    repository->getSleepData(testing::utcDate(2024, 3, 10), completions.completion());
    repository.reset();
  }
  const std::optional<SleepResult> result = completions.wait();
  ASSERT_TRUE(result.has_value());
  ASSERT_TRUE(result->isFailure());
  EXPECT_EQ(result->error().message(), "locked");
}

TEST(SleepRepositoryConcurrencyTest, ConcurrentRequestsFromManyThreadsEachCompleteOnce) {
  SleepTestStore store(nlohmann::json{
      {"samples", {sleepSample(5, "2024-03-10T01:00:00Z", "2024-03-10T02:00:00Z")}}});
  const auto repository = SleepRepository::make();
  constexpr int kThreads = 4;
  constexpr int kRequestsPerThread = 5;
  std::vector<Completions<SleepResult>> completions(kThreads * kRequestsPerThread);
  std::vector<Date> dates;
  for (int i = 0; i < kThreads * kRequestsPerThread; ++i) {
    dates.push_back(testing::utcDate(2024, 3, 10, 0, i));
  }
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        for (int r = 0; r < kRequestsPerThread; ++r) {
          const auto i = static_cast<std::size_t>(t * kRequestsPerThread + r);
          repository->getSleepData(dates[i], completions[i].completion());
        }
      });
    }
  }
  for (const auto& completion : completions) {
    const std::optional<SleepResult> result = completion.wait();
    ASSERT_TRUE(result.has_value());
    ASSERT_TRUE(result->isSuccess() && result->value().has_value());
    EXPECT_EQ(result->value()
                  ->summaries.sleepRelatedData.sleepDurationRelatedData.remSleepDurationSeconds,
              3600);
  }
  testing::drainQueue(*store.database().callbackQueue());
  for (const auto& completion : completions) {
    EXPECT_EQ(completion.count(), 1u);
  }
  // The last writer wins: the stored date is one of those asked for.
  const std::optional<Date> stored = storedSleepDate();
  ASSERT_TRUE(stored.has_value());
  EXPECT_NE(std::find(dates.begin(), dates.end(), *stored), dates.end());
}

}  // namespace
}  // namespace velk
