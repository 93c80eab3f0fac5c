// Helpers for sleep tests: a device over a store given as store-file JSON, and ways to wait for
// completions that arrive on the store's queue or to hold that queue while a test acts.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/TestDevice.h"
#include "velk/ingest/StoreFile.h"

namespace velk::testing {

inline nlohmann::json sleepSample(int value, const std::string& start, const std::string& end,
                                  const std::string& source = "com.apple.health") {
  return {{"type", "HKCategoryTypeIdentifierSleepAnalysis"},
          {"start", start},
          {"end", end},
          {"value", value},
          {"source", source}};
}

/// Installs a device over the store that `storeFile` describes, read by the store-file reader;
/// `adjust` may change what was read before the database is built.
class SleepTestStore {
 public:
  explicit SleepTestStore(const nlohmann::json& storeFile, TestDeviceOptions options = {},
                          const std::function<void(ingest::StoreFileContents&)>& adjust = {}) {
    auto contents = ingest::StoreFile::parse(storeFile.dump(), "store.json");
    EXPECT_TRUE(contents.isSuccess()) << contents.error();
    ingest::StoreFileContents read =
        contents.isSuccess() ? contents.value() : ingest::StoreFileContents{};
    if (adjust) {
      adjust(read);
    }
    database_ = ingest::StoreFile::makeDatabase(read);
    options.healthDatabase = database_;
    device_ = std::make_unique<TestDevice>(std::move(options));
  }
  TestDevice& device() { return *device_; }
  platform::HealthDatabase& database() { return *database_; }

 private:
  std::shared_ptr<platform::HealthDatabase> database_;
  std::unique_ptr<TestDevice> device_;
};

/// Collects the calls of a completion, from whatever thread they come.
template <class Value>
class Completions {
 public:
  std::function<void(Value)> completion() const {
    return [state = state_](Value value) {
      std::lock_guard lock(state->mutex);
      state->values.push_back(std::move(value));
      state->arrived.notify_all();
    };
  }
  /// The first value; absent if none arrives within ten seconds.
  std::optional<Value> wait() const {
    std::unique_lock lock(state_->mutex);
    if (!state_->arrived.wait_for(lock, std::chrono::seconds(10),
                                  [&] { return !state_->values.empty(); })) {
      return std::nullopt;
    }
    return state_->values.front();
  }
  std::vector<Value> values() const {
    std::lock_guard lock(state_->mutex);
    return state_->values;
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<Value> values;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// Waits until every item now on `queue` has run.
inline void drainQueue(platform::DispatchQueue& queue) {
  Completions<bool> done;
  queue.async([completion = done.completion()] { completion(true); });
  ASSERT_TRUE(done.wait().has_value());
}

/// Keeps a serial queue busy for its lifetime, so that answers wait behind it.
class QueueGate {
 public:
  explicit QueueGate(platform::DispatchQueue& queue) {
    queue.async([opened = opened_] { opened->wait(); });
  }
  ~QueueGate() { opened_->completion()(true); }
  QueueGate(const QueueGate&) = delete;
  QueueGate& operator=(const QueueGate&) = delete;

 private:
  std::shared_ptr<Completions<bool>> opened_ = std::make_shared<Completions<bool>>();
};

}  // namespace velk::testing
