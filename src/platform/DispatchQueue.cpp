#include "velk/DispatchQueue.h"

#include <utility>

namespace velk::platform {

std::shared_ptr<SerialQueue> SerialQueue::make(std::string label) {
  return std::shared_ptr<SerialQueue>(new SerialQueue(std::move(label)));
}

SerialQueue::SerialQueue(std::string label)
    : label_(std::move(label)), worker_(std::make_shared<Worker>()) {
  thread_ = std::thread(&SerialQueue::run, worker_);
}

SerialQueue::~SerialQueue() {
  {
    std::lock_guard lock(worker_->mutex);
    worker_->stopping = true;
  }
  worker_->wake.notify_one();
  if (thread_.get_id() == std::this_thread::get_id()) {
    // The last owner let go from inside one of our own work items: the thread cannot join
    // itself, so it runs what is left and ends on its own once that item returns.
    thread_.detach();
  } else {
    thread_.join();
  }
}

void SerialQueue::async(Work work) {
  // The work may release the last owner of this queue as soon as it is queued, so nothing of
  // `this` is touched once the lock is let go: the worker is kept alive by a copy of its pointer.
  const std::shared_ptr<Worker> worker = worker_;
  {
    std::lock_guard lock(worker->mutex);
    worker->work.push_back(std::move(work));
  }
  worker->wake.notify_one();
}

bool SerialQueue::isCurrent() const {
  return std::this_thread::get_id() == thread_.get_id();
}

void SerialQueue::run(std::shared_ptr<Worker> worker) {
  std::unique_lock lock(worker->mutex);
  for (;;) {
    worker->wake.wait(lock, [&] { return worker->stopping || !worker->work.empty(); });
    if (worker->work.empty()) {
      return;  // stopping, and nothing left to run
    }
    Work next = std::move(worker->work.front());
    worker->work.pop_front();
    lock.unlock();
    next();
    next = nullptr;  // release captures before taking the lock again
    lock.lock();
  }
}

MainQueue::MainQueue(std::string label) : label_(std::move(label)) {}

void MainQueue::async(Work work) {
  {
    std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
  }
  wake_.notify_all();
}

bool MainQueue::isCurrent() const {
  std::lock_guard lock(mutex_);
  return runner_ == std::this_thread::get_id();
}

bool MainQueue::runOne(std::unique_lock<std::mutex>& lock) {
  if (work_.empty()) {
    return false;
  }
  Work next = std::move(work_.front());
  work_.pop_front();
  const auto previous = runner_;
  runner_ = std::this_thread::get_id();
  lock.unlock();
  next();
  next = nullptr;
  lock.lock();
  runner_ = previous;
  return true;
}

std::size_t MainQueue::drain() {
  std::unique_lock lock(mutex_);
  std::size_t ran = 0;
  while (runOne(lock)) {
    ++ran;
  }
  return ran;
}

bool MainQueue::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  std::unique_lock lock(mutex_);
  for (;;) {
    lock.unlock();
    if (done()) {
      return true;
    }
    lock.lock();
    if (runOne(lock)) {
      continue;
    }
    // Nothing queued: wait for work, waking now and then to look at done() again, since what it
    // watches may be set from another queue.
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) {
      lock.unlock();
      return done();
    }
    wake_.wait_until(lock, std::min(deadline, now + std::chrono::milliseconds(5)));
  }
}

}  // namespace velk::platform
