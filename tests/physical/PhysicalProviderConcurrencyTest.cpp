// Requests that overlap on one provider: the five reads of each answer on the store's queues while
// the others are still out, all writing into the one builder. Every request must still complete
// once, on the main queue, with a whole document (run under ThreadSanitizer).

#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "physical/PhysicalTestSupport.h"

namespace velk::testing {
namespace {

TEST(PhysicalProviderConcurrencyTest, OverlappingRequestsEachCompleteOnce) {
  PhysicalStore store(R"({"samples": [
      {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T10:00:00Z", "end": "2024-03-10T11:00:00Z", "value": 8000},
      {"type": "HKQuantityTypeIdentifierActiveEnergyBurned", "start": "2024-03-10T10:00:00Z", "end": "2024-03-10T11:00:00Z", "value": 400},
      {"type": "HKQuantityTypeIdentifierBasalEnergyBurned", "start": "2024-03-10T10:00:00Z", "end": "2024-03-10T11:00:00Z", "value": 1600},
      {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T10:00:00Z", "end": "2024-03-10T10:00:00Z", "value": 70},
      {"type": "HKQuantityTypeIdentifierHeartRateVariabilitySDNN", "start": "2024-03-10T10:00:00Z", "end": "2024-03-10T10:00:00Z", "value": 50}
    ]})");
  auto provider = std::make_shared<VelkPhysicalProvider>();
  constexpr int kRequestsPerThread = 8;
  platform::DebugOutputCapture quiet;  // the 11th has no data: its reads report failures

  std::vector<int> completions;  // touched on the main queue only
  std::vector<std::thread> callers;
  for (int caller = 0; caller < 2; ++caller) {
    callers.emplace_back([&, caller] {
      for (int i = 0; i < kRequestsPerThread; ++i) {
        provider->getPhysicalData(utcDate(2024, 3, 10 + (i % 2), 12),
                                  [&, caller](Result<VelkPhysicalData> result) {
                                    ASSERT_TRUE(store.device().mainQueue().isCurrent());
                                    ASSERT_TRUE(result.isSuccess());
                                    completions.push_back(caller);
                                  });
      }
    });
  }
  for (auto& caller : callers) {
    caller.join();
  }
  ASSERT_TRUE(store.device().mainQueue().runUntil(
      [&] { return completions.size() == 2 * kRequestsPerThread; }, std::chrono::seconds(60)));
  store.device().mainQueue().drain();
  EXPECT_EQ(completions.size(), 2u * kRequestsPerThread);

  // Whatever order the answers came in, the 10th's values were stored and never cleared.
  EXPECT_EQ(provider->velkPhysicalBuilder.totalSteps(), 8000);
  EXPECT_EQ(provider->velkPhysicalBuilder.caloriesData(), (VelkCalories{400, 1600, 2000}));
}

}  // namespace
}  // namespace velk::testing
