// Dispatch queues: the substitutes for the platform's serial queues and its main queue.
//
// A SerialQueue runs its work items one after another, in the order they were added, on a thread
// of its own. The MainQueue has no thread: the host drives it from the thread it calls its main
// thread (the tool does so from main()), just as an application's run loop drives the platform's
// main queue.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace velk::platform {

class DispatchQueue {
 public:
  using Work = std::function<void()>;

  virtual ~DispatchQueue() = default;

  /// Adds `work` to the end of the queue and returns at once.
  virtual void async(Work work) = 0;

  /// True when the calling thread is running this queue's work right now.
  virtual bool isCurrent() const = 0;

  virtual const std::string& label() const = 0;
};

/// A serial queue with its own thread. Destroying it runs what is already queued, then stops.
class SerialQueue final : public DispatchQueue {
 public:
  static std::shared_ptr<SerialQueue> make(std::string label);
  ~SerialQueue() override;

  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  void async(Work work) override;
  bool isCurrent() const override;
  const std::string& label() const override { return label_; }

 private:
  // What the worker thread uses lives apart from the queue object, so that the thread can finish
  // safely when the queue is destroyed from inside one of its own work items.
  struct Worker {
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<Work> work;
    bool stopping = false;
  };
  static void run(std::shared_ptr<Worker> worker);

  explicit SerialQueue(std::string label);

  std::string label_;
  std::shared_ptr<Worker> worker_;
  std::thread thread_;
};

/// The main queue, driven by the host. Work added from any thread runs only inside one of the
/// run calls below, on the thread that makes the call.
class MainQueue final : public DispatchQueue {
 public:
  explicit MainQueue(std::string label = "com.apple.main-thread");

  void async(Work work) override;
  bool isCurrent() const override;
  const std::string& label() const override { return label_; }

  /// Runs every item queued now or while it runs, until the queue is empty. Returns how many ran.
  std::size_t drain();

  /// Runs items as they arrive until `done()` holds (checked after each item and on entry) or
  /// `timeout` has passed. Returns whether `done()` held.
  bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);

 private:
  bool runOne(std::unique_lock<std::mutex>& lock);

  std::string label_;
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Work> work_;
  std::thread::id runner_;
};

}  // namespace velk::platform
