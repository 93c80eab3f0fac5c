#include "platform/QueryWorkers.h"

#include <cstdlib>
#include <utility>

namespace velk::platform {

class QueryWorkers::Task {
 public:
  explicit Task(std::function<void()> compute) : compute_(std::move(compute)) {}

 private:
  friend class QueryWorkers;
  enum class State { waiting, running, done };

  std::function<void()> compute_;  ///< released by finish(), on the thread whose turn it is
  State state_ = State::waiting;   ///< guarded by Shared::mutex
};

struct QueryWorkers::Shared {
  std::mutex mutex;
  std::condition_variable changed;  ///< a task was offered or finished, or the helpers stop
  std::deque<std::shared_ptr<Task>> offered;
  bool stopping = false;

  // The oldest task that nobody has begun, marked running; null when there is none. The mutex is
  // held.
  std::shared_ptr<Task> take() {
    while (!offered.empty()) {
      std::shared_ptr<Task> task = std::move(offered.front());
      offered.pop_front();
      if (task->state_ == Task::State::waiting) {
        task->state_ = Task::State::running;
        return task;
      }
    }
    return nullptr;
  }

  // Computes a task that `take` (or finish) marked running, without the lock.
  void run(std::unique_lock<std::mutex>& lock, Task& task) {
    lock.unlock();
    task.compute_();
    lock.lock();
    task.state_ = Task::State::done;
    changed.notify_all();
  }
};

QueryWorkers::QueryWorkers(std::size_t helpers) : shared_(std::make_shared<Shared>()) {
  for (std::size_t i = 0; i < helpers; ++i) {
    helpers_.emplace_back(&QueryWorkers::help, shared_);
  }
}

QueryWorkers::~QueryWorkers() {
  {
    std::lock_guard lock(shared_->mutex);
    shared_->stopping = true;
  }
  shared_->changed.notify_all();
  for (std::thread& helper : helpers_) {
    if (helper.get_id() == std::this_thread::get_id()) {
      helper.detach();  // released from inside a computation: it ends once that returns
    } else {
      helper.join();
    }
  }
}

std::size_t QueryWorkers::helpersForThisMachine() {
  if (const char* asked = std::getenv("VELK_QUERY_HELPERS"); asked != nullptr && *asked != '\0') {
    return static_cast<std::size_t>(std::strtoul(asked, nullptr, 10));
  }
  const unsigned cores = std::thread::hardware_concurrency();
  return cores > 1 ? cores - 1 : 0;
}

std::shared_ptr<QueryWorkers::Task> QueryWorkers::offer(std::function<void()> compute) {
  auto task = std::make_shared<Task>(std::move(compute));
  if (helpers_.empty()) {
    return task;
  }
  {
    std::lock_guard lock(shared_->mutex);
    shared_->offered.push_back(task);
  }
  shared_->changed.notify_one();
  return task;
}

void QueryWorkers::finish(Task& task) {
  std::unique_lock lock(shared_->mutex);
  if (task.state_ == Task::State::waiting) {
    task.state_ = Task::State::running;
    shared_->run(lock, task);
  }
  while (task.state_ != Task::State::done) {
    if (std::shared_ptr<Task> next = shared_->take()) {
      shared_->run(lock, *next);
    } else {
      shared_->changed.wait(lock);
    }
  }
  // What the computation captured is let go here, where the answer is handed over, as it would
  // be without helpers.
  std::function<void()> computed = std::move(task.compute_);
  lock.unlock();
}

void QueryWorkers::help(std::shared_ptr<Shared> shared) {
  std::unique_lock lock(shared->mutex);
  for (;;) {
    shared->changed.wait(lock, [&] { return shared->stopping || !shared->offered.empty(); });
    if (shared->stopping) {
      return;
    }
    if (std::shared_ptr<Task> task = shared->take()) {
      shared->run(lock, *task);
    }
  }
}

}  // namespace velk::platform
