// Test helpers for the sleep summary: a device over a store written as store-file JSON, sleep
// samples for it, and a way to wait for a completion that arrives on the store's queue.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/TestDevice.h"
#include "velk/ingest/StoreFile.h"

namespace velk::testing {

/// A sleep-analysis sample of a store file; `start` and `end` are ISO 8601 texts with an offset.
inline nlohmann::json sleepSample(int value, const std::string& start, const std::string& end,
                                  const std::string& source = "com.apple.health") {
  return {{"type", "HKCategoryTypeIdentifierSleepAnalysis"},
          {"start", start},
          {"end", end},
          {"value", value},
          {"source", source}};
}

/// A device over the store that `storeFile` describes (parsed as a store file, so that the tests
/// go through the same reader as the tool). `adjust` may change the store before it is built.
class SleepTestStore {
 public:
  explicit SleepTestStore(const nlohmann::json& storeFile, TestDeviceOptions options = {},
                          const std::function<void(ingest::StoreFileContents&)>& adjust = {}) {
    Result<ingest::StoreFileContents> contents =
        ingest::StoreFile::parse(storeFile.dump(), "store.json");
    if (contents.isFailure()) {
      ADD_FAILURE() << contents.error();
      contents = Result<ingest::StoreFileContents>::success({});
    }
    ingest::StoreFileContents adjusted = contents.value();
    if (adjust) {
      adjust(adjusted);
    }
    database_ = ingest::StoreFile::makeDatabase(adjusted);
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

  /// The first value, once it has arrived; absent if none arrives within `timeout`.
  std::optional<Value> wait(std::chrono::milliseconds timeout = std::chrono::seconds(10)) const {
    std::unique_lock lock(state_->mutex);
    if (!state_->arrived.wait_for(lock, timeout, [&] { return !state_->values.empty(); })) {
      return std::nullopt;
    }
    return state_->values.front();
  }

  /// Every value that has arrived so far, in order of arrival.
  std::vector<Value> values() const {
    std::lock_guard lock(state_->mutex);
    return state_->values;
  }

  std::size_t count() const {
    std::lock_guard lock(state_->mutex);
    return state_->values.size();
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<Value> values;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// Holds a serial queue busy until release(), so that a test can act while an answer waits.
class QueueGate {
 public:
  explicit QueueGate(platform::DispatchQueue& queue) {
    queue.async([state = state_] {
      std::unique_lock lock(state->mutex);
      state->entered = true;
      state->changed.notify_all();
      state->changed.wait(lock, [&] { return state->released; });
    });
    std::unique_lock lock(state_->mutex);
    state_->changed.wait(lock, [&] { return state_->entered; });
  }
  ~QueueGate() { release(); }
  QueueGate(const QueueGate&) = delete;
  QueueGate& operator=(const QueueGate&) = delete;

  void release() {
    std::lock_guard lock(state_->mutex);
    state_->released = true;
    state_->changed.notify_all();
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    bool entered = false;
    bool released = false;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// Waits until every item now on `queue` has run.
inline void drainQueue(platform::DispatchQueue& queue) {
  Completions<bool> done;
  queue.async([completion = done.completion()] { completion(true); });
  ASSERT_TRUE(done.wait().has_value());
}

}  // namespace velk::testing
