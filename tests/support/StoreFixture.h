// Helpers for tests that run queries against a substitute health store: build a database from
// store-file JSON, run a query and wait for its answer (which arrives on the store's queue or the
// main queue), or hold a queue while a test acts.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/HKHealthStore.h"
#include "platform/InMemoryHealthDatabase.h"
#include "velk/DispatchQueue.h"

namespace velk::testing {

/// The database that `json` (store-file text) describes; a failing test and an empty database
/// when the text is not a valid store file.
std::shared_ptr<platform::InMemoryHealthDatabase> databaseFromJson(const std::string& json);

struct SampleAnswer {
  std::optional<platform::HKSampleList> samples;
  std::optional<Error> error;
  bool answeredOnCallerThread = false;
};

SampleAnswer runSampleQuery(const platform::HKHealthStore& store,
                            const platform::HKObjectType& type,
                            std::optional<platform::NSPredicate> predicate, std::int64_t limit = 0,
                            std::vector<platform::NSSortDescriptor> sort = {});

struct CollectionAnswer {
  std::optional<platform::HKStatisticsCollection> collection;
  std::optional<Error> error;
};

CollectionAnswer runCollectionQuery(const platform::HKHealthStore& store,
                                    platform::HKStatisticsCollectionQuery query);

/// Collects the calls of a completion, from whatever thread they come.
template <class T>
class Completions {
 public:
  std::function<void(T)> completion() const {
    return [state = state_](T value) {
      std::lock_guard lock(state->mutex);
      state->values.push_back(std::move(value));
      state->arrived.notify_all();
    };
  }
  /// The first value; nullopt if none arrives within ten seconds.
  std::optional<T> wait() const {
    std::unique_lock lock(state_->mutex);
    if (!state_->arrived.wait_for(lock, std::chrono::seconds(10),
                                  [&] { return !state_->values.empty(); })) {
      return std::nullopt;
    }
    return state_->values.front();
  }
  std::vector<T> values() const {
    std::lock_guard lock(state_->mutex);
    return state_->values;
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<T> values;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// Starts a request with a completion and waits on this thread for its first answer (throwing,
/// and so failing the test, when none comes).
template <class T, class Start>
T firstAnswer(Start start) {
  Completions<T> answers;
  start(answers.completion());
  return answers.wait().value();
}

/// Starts a request whose completion must run on `queue` (the main queue), runs that queue until
/// it has, and returns the value given.
template <class T, class Start>
T answerOnMainQueue(platform::MainQueue& queue, Start start) {
  std::optional<T> value;
  bool onQueue = false;
  start([&](T answer) {
    onQueue = queue.isCurrent();
    value = std::move(answer);
  });
  queue.runUntil([&] { return value.has_value(); }, std::chrono::seconds(20));
  if (value && !onQueue) {
    ADD_FAILURE() << "the completion ran off the main queue";
  }
  return std::move(value).value();
}

/// Waits until every item now on `queue` has run.
void drainQueue(platform::DispatchQueue& queue);

/// Keeps a serial queue busy for its lifetime, so that answers wait behind it.
class QueueGate {
 public:
  explicit QueueGate(platform::DispatchQueue& queue);
  ~QueueGate();
  QueueGate(const QueueGate&) = delete;
  QueueGate& operator=(const QueueGate&) = delete;

 private:
  Completions<bool> opened_;
};

}  // namespace velk::testing
