#include "platform/DispatchGroup.h"
#include "velk/DebugOutput.h"

namespace velk::platform {

DispatchGroup::DispatchGroup() : state_(std::make_shared<State>()) {}

void DispatchGroup::enter() {
  std::lock_guard lock(state_->mutex);
  ++state_->outstanding;
}

void DispatchGroup::leave() {
  decltype(state_->waiting) ready;
  {
    std::lock_guard lock(state_->mutex);
    if (state_->outstanding <= 0) {
      fatalError("DispatchGroup::leave() without a matching enter()");
    }
    if (--state_->outstanding == 0) {
      ready.swap(state_->waiting);
    }
  }
  for (auto& [queue, work] : ready) {
    queue->async(std::move(work));
  }
}

void DispatchGroup::notify(std::shared_ptr<DispatchQueue> queue, DispatchQueue::Work work) {
  {
    std::lock_guard lock(state_->mutex);
    if (state_->outstanding > 0) {
      state_->waiting.emplace_back(std::move(queue), std::move(work));
      return;
    }
  }
  queue->async(std::move(work));
}

}  // namespace velk::platform
