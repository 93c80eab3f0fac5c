// One answer of the library, awaited on the host's main thread. The library answers on the
// store's queue or on the main queue; the waiting thread drives the main queue until the answer
// is there, so answers delivered on the main queue arrive too. An answer set on another queue
// wakes the main queue with an empty work item, as a host hands a result to its main queue.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "velk/Device.h"

namespace velk::table {

/// How long a host waits for one answer. A request whose reader was released never answers;
/// everything else answers in far less.
inline constexpr std::chrono::seconds kAnswerTimeout{120};

template <class Value>
class AwaitedAnswer {
 public:
  /// Safe from any thread; call it once.
  void set(Value value) {
    {
      std::lock_guard lock(mutex_);
      value_ = std::move(value);
      arrived_ = true;
    }
    if (!mainQueue_->isCurrent()) {
      mainQueue_->async([] {});
    }
  }
  /// Drives the installed device's main queue until the answer is there; false on timeout.
  bool await() {
    return mainQueue_->runUntil([this] { return arrived_.load(); }, kAnswerTimeout);
  }
  /// The answer; only after await() returned true.
  Value take() {
    std::lock_guard lock(mutex_);
    return std::move(*value_);
  }

 private:
  const std::shared_ptr<platform::MainQueue> mainQueue_ = platform::Device::current()->mainQueue();
  std::mutex mutex_;
  std::atomic<bool> arrived_{false};
  std::optional<Value> value_;
};

}  // namespace velk::table
