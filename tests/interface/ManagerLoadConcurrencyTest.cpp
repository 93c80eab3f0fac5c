// Many requests at once, from many threads, on one manager and on several: every completion is
// called exactly once, and managers released with requests out neither crash nor call twice.
// Run under ThreadSanitizer (the "tsan" preset) and LeakSanitizer (the "asan" preset).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "extraction/ExtractionLastDateStorage.h"
#include "support/StoreFixture.h"
#include "support/TestDevice.h"
#include "velk/BodyDocument.h"
#include "velk/PhysicalDocument.h"
#include "velk/SleepDocument.h"
#include "velk/VelkExtractionManager.h"

namespace velk {
namespace {

constexpr int kThreads = 6;
constexpr int kRequestsPerThread = 20;  // each request is all six summary calls

const char* kStore = R"({"date_of_birth": "1990-06-15", "biological_sex": 1, "samples": [
  {"type": "HKCategoryTypeIdentifierSleepAnalysis", "start": "2024-03-09T23:10:00+01:00", "end": "2024-03-10T06:40:00+01:00", "value": 3, "source": "com.apple.health.8D2F3A"},
  {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T08:00:00Z", "end": "2024-03-10T08:10:00Z", "value": 1234, "unit": "count"},
  {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T09:00:00Z", "end": "2024-03-10T09:00:00Z", "value": 61, "unit": "count/min"},
  {"type": "HKQuantityTypeIdentifierBodyMass", "start": "2024-03-01T07:00:00Z", "end": "2024-03-01T07:00:00Z", "value": 70.5, "unit": "kg"}]})";

// One counter per request slot: a completion called twice shows as a 2.
using CallCounts = std::vector<std::atomic<int>>;

std::size_t called(const CallCounts& counts) {
  return static_cast<std::size_t>(
      std::count_if(counts.begin(), counts.end(), [](const auto& n) { return n.load() > 0; }));
}

int most(const CallCounts& counts) {
  return std::max_element(counts.begin(), counts.end(),
                          [](const auto& a, const auto& b) { return a.load() < b.load(); })
      ->load();
}

void requestAll(VelkExtractionManager& manager, Date day, CallCounts& counts, std::size_t slot) {
  auto count = [&counts](std::size_t i) { return [&counts, i](auto&&...) { ++counts[i]; }; };
  manager.getSleepSummay(day, count(slot));
  manager.getPhysicalSummary(day, count(slot + 1));
  manager.getBodySummary(day, count(slot + 2));
  manager.getSleepSummayObjc(day, count(slot + 3));
  manager.getPhysicalSummaryObjc(day, count(slot + 4));
  manager.getBodySummaryObjc(day, count(slot + 5));
}

TEST(ManagerLoadConcurrencyTest, ManyThreadsOnOneAndOnSeveralManagersGetEachAnswerOnce) {
  testing::TestDevice device({.timeZone = "Europe/Berlin",
                              .now = testing::utcDate(2024, 3, 12, 12),
                              .healthDatabase = testing::databaseFromJson(kStore)});
  constexpr std::size_t kSlots = std::size_t{kThreads} * kRequestsPerThread * 6;
  for (const bool shared : {true, false}) {
    SCOPED_TRACE(shared ? "one manager" : "a manager per thread");
    CallCounts counts(kSlots);
    // A manager held by nobody drops its answers, so each is kept until the end.
    std::vector<std::shared_ptr<VelkExtractionManager>> managers;
    for (int t = 0; t < (shared ? 1 : kThreads); ++t) {
      managers.push_back(std::make_shared<VelkExtractionManager>());
    }
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        auto& own = *managers[shared ? 0 : static_cast<std::size_t>(t)];
        for (int r = 0; r < kRequestsPerThread; ++r) {
          const auto slot = static_cast<std::size_t>((t * kRequestsPerThread + r) * 6);
          requestAll(own, testing::utcDate(2024, 3, 9 + r % 3, 12), counts, slot);
        }
      });
    }
    const bool answered = device.mainQueue().runUntil([&] { return called(counts) == kSlots; },
                                                      std::chrono::seconds(60));
    for (auto& thread : threads) {
      thread.join();
    }
    device.mainQueue().drain();
    EXPECT_TRUE(answered) << called(counts) << " of " << kSlots << " answered";
    EXPECT_EQ(most(counts), 1) << "a completion was called twice";
  }
}

TEST(ManagerLoadConcurrencyTest, ManagersReleasedWithQueriesInFlightCallNothingTwice) {
  testing::TestDevice device({.timeZone = "America/Sao_Paulo",
                              .now = testing::utcDate(2024, 3, 12, 12),
                              .healthDatabase = testing::databaseFromJson(kStore)});
  constexpr int kManagers = 40;
  CallCounts counts(kManagers * 6);
  for (int m = 0; m < kManagers; ++m) {
    auto manager = std::make_unique<VelkExtractionManager>();
    requestAll(*manager, testing::utcDate(2024, 3, 10, 12), counts,
               static_cast<std::size_t>(m) * 6);
    manager.reset();
  }
  // Let every query that is out finish, then run what reached the main queue.
  for (int round = 0; round < 50; ++round) {
    device.mainQueue().drain();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_LE(most(counts), 1) << "a completion was called twice";
}

TEST(ManagerConcurrencyTest, ReleasingTheManagerWhileASleepQueryIsOutDropsTheAnswer) {
  const auto store = testing::databaseFromJson(kStore);
  testing::TestDevice device({.healthDatabase = store});
  CallCounts counts(6);
  {
    testing::QueueGate gate(*store->callbackQueue());
    auto manager = std::make_unique<VelkExtractionManager>();
    requestAll(*manager, testing::utcDate(2024, 3, 10, 12), counts, 0);
    manager.reset();
  }
  testing::drainQueue(*store->callbackQueue());
  device.mainQueue().drain();
  EXPECT_EQ(called(counts), 0u);
  EXPECT_EQ(ExtractionLastDateStorage().readLastDate(VelkDataType::sleepSummary), std::nullopt);
}

}  // namespace
}  // namespace velk
