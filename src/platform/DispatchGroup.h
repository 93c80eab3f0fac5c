// A dispatch group: counts outstanding work and, when the count falls to zero, submits the
// blocks registered with notify() to their queues.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "velk/DispatchQueue.h"

namespace velk::platform {

class DispatchGroup {
 public:
  DispatchGroup();

  void enter();

  /// Must balance an earlier enter(); an unbalanced leave is a programming error and stops.
  void leave();

  /// Submits `work` to `queue` once the group is empty: at once if it is empty now.
  void notify(std::shared_ptr<DispatchQueue> queue, DispatchQueue::Work work);

 private:
  struct State {
    std::mutex mutex;
    long outstanding = 0;
    std::vector<std::pair<std::shared_ptr<DispatchQueue>, DispatchQueue::Work>> waiting;
  };
  // Shared so that copies of a group, captured by value in continuations, count together.
  std::shared_ptr<State> state_;
};

}  // namespace velk::platform
