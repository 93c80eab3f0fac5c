// Helpers of the body tests: sample records, a health database that a test can swap between
// requests, and a way to run one body request to its end on the main queue.
#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/TestDevice.h"
#include "velk/body/VelkBodyProvider.h"
#include "velk/platform/HealthDatabase.h"
#include "velk/platform/InMemoryHealthDatabase.h"
#include "velk/platform/SampleRecord.h"

namespace velk::testing {

inline constexpr const char* kBodyMass = "HKQuantityTypeIdentifierBodyMass";
inline constexpr const char* kHeight = "HKQuantityTypeIdentifierHeight";

inline platform::SampleRecord measurement(const std::string& type, double value,
                                          const std::string& unit, Date start,
                                          std::optional<bool> wasUserEntered = std::nullopt) {
  platform::SampleRecord record;
  record.type = type;
  record.value = value;
  record.unit = unit;
  record.start = start;
  record.end = start;
  record.wasUserEntered = wasUserEntered;
  return record;
}

inline std::shared_ptr<platform::HealthDatabase> database(
    std::vector<platform::SampleRecord> records,
    platform::Characteristics characteristics = platform::Characteristics{},
    platform::HealthDatabaseSettings settings = platform::HealthDatabaseSettings{}) {
  return std::make_shared<platform::InMemoryHealthDatabase>(std::move(settings),
                                                            std::move(characteristics), records);
}

/// A health database whose contents a test replaces between requests, as a user's data changes
/// between two extractions; every call goes to the database set last.
class SwappableHealthDatabase final : public platform::HealthDatabase {
 public:
  explicit SwappableHealthDatabase(std::shared_ptr<platform::HealthDatabase> inner)
      : inner_(std::move(inner)) {}

  void swap(std::shared_ptr<platform::HealthDatabase> inner) {
    std::lock_guard<std::mutex> lock(mutex_);
    inner_ = std::move(inner);
  }

  bool isHealthDataAvailable() const override { return inner()->isHealthDataAvailable(); }
  bool knowsType(const std::string& identifier) const override {
    return inner()->knowsType(identifier);
  }
  platform::AuthorizationAnswer authorizationAnswer() const override {
    return inner()->authorizationAnswer();
  }
  std::optional<Error> queryError(const std::string& type) const override {
    return inner()->queryError(type);
  }
  bool answersWithoutSamples(const std::string& type) const override {
    return inner()->answersWithoutSamples(type);
  }
  std::vector<platform::StoredSample> samples(const std::string& type, std::optional<Date> start,
                                              std::optional<Date> end) const override {
    return inner()->samples(type, start, end);
  }
  platform::Characteristics characteristics() const override { return inner()->characteristics(); }

 private:
  std::shared_ptr<platform::HealthDatabase> inner() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return inner_;
  }
  mutable std::mutex mutex_;
  std::shared_ptr<platform::HealthDatabase> inner_;
};

/// Holds the store's callback queue until release(), so that a test can act while an answer is
/// still out.
class HeldCallbackQueue {
 public:
  explicit HeldCallbackQueue(platform::HealthDatabase& database) {
    auto released = release_.get_future().share();
    database.callbackQueue()->async([released] { released.wait(); });
  }
  ~HeldCallbackQueue() { release(); }
  void release() {
    std::call_once(once_, [this] { release_.set_value(); });
  }

 private:
  std::promise<void> release_;
  std::once_flag once_;
};

/// Waits until every item queued on the store's callback queue so far has run.
inline void flush(platform::HealthDatabase& database) {
  std::promise<void> done;
  database.callbackQueue()->async([&done] { done.set_value(); });
  done.get_future().wait();
}

/// Runs one body request through `provider` and drives the main queue until it completes; checks
/// that the completion came once, on the main queue, with success.
inline VelkBodyData bodySummary(VelkBodyProvider& provider, const TestDevice& device, Date date) {
  std::optional<Result<VelkBodyData>> answer;
  bool onMainQueue = false;
  provider.getBodySummary(date, [&](Result<VelkBodyData> result) {
    onMainQueue = device.mainQueue().isCurrent();
    answer = std::move(result);
  });
  EXPECT_TRUE(
      device.mainQueue().runUntil([&] { return answer.has_value(); }, std::chrono::seconds(10)));
  EXPECT_TRUE(onMainQueue);
  if (!answer.has_value() || !answer->isSuccess()) {
    ADD_FAILURE() << "the body summary did not complete with success";
    return VelkBodyData{};
  }
  return std::move(*answer).value();
}

}  // namespace velk::testing
