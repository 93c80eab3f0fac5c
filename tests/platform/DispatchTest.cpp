#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <numeric>
#include <thread>
#include <vector>

#include "platform/DispatchGroup.h"
#include "platform/QueryWorkers.h"
#include "velk/DispatchQueue.h"

namespace velk::platform {
namespace {

using namespace std::chrono_literals;

TEST(DispatchConcurrencyTest, SerialQueueRunsInOrderOnItsOwnThread) {
  auto queue = SerialQueue::make("test.serial");
  MainQueue main;
  std::atomic<int> next{0};  // the index of the next item, or -1 once one ran wrongly
  const auto caller = std::this_thread::get_id();
  for (int i = 0; i < 100; ++i) {
    queue->async([&, i] {
      const bool right = std::this_thread::get_id() != caller && queue->isCurrent() && next == i;
      next = right ? i + 1 : -1;
    });
  }
  ASSERT_TRUE(main.runUntil([&] { return next == 100 || next < 0; }, 5s));
  EXPECT_EQ(next, 100);
  EXPECT_FALSE(queue->isCurrent());
}

TEST(DispatchConcurrencyTest, GroupNotifiesOnTheMainQueueAfterEveryLeaveOrAtOnceWhenEmpty) {
  auto main = std::make_shared<MainQueue>();
  DispatchGroup empty;
  int emptyRuns = 0;
  empty.notify(main, [&] { ++emptyRuns; });
  EXPECT_EQ(emptyRuns, 0);  // submitted, not run inline
  EXPECT_EQ(main->drain(), 1u);
  EXPECT_EQ(emptyRuns, 1);

  std::vector<std::shared_ptr<SerialQueue>> workers;
  DispatchGroup group;
  std::atomic<int> finished{0};
  bool notifiedOnMain = false;
  int finishedAtNotify = -1;
  for (int i = 0; i < 5; ++i) {
    workers.push_back(SerialQueue::make("test.worker"));
    group.enter();
    workers.back()->async([&, group]() mutable {
      std::this_thread::sleep_for(1ms);
      ++finished;
      group.leave();
    });
  }
  group.notify(main, [&] {
    notifiedOnMain = main->isCurrent();
    finishedAtNotify = finished.load();
  });
  ASSERT_TRUE(main->runUntil([&] { return finishedAtNotify >= 0; }, 5s));
  EXPECT_TRUE(notifiedOnMain);
  EXPECT_EQ(finishedAtNotify, 5);
}

TEST(DispatchConcurrencyTest, QueueReleasedFromItsOwnWorkDoesNotDeadlock) {
  auto main = std::make_shared<MainQueue>();
  std::atomic<bool> done{false};
  auto queue = SerialQueue::make("test.self-release");
  auto* raw = queue.get();
  raw->async([q = std::move(queue), &done]() mutable {
    q.reset();
    done = true;
  });
  EXPECT_TRUE(main->runUntil([&] { return done.load(); }, 5s));
}

TEST(DispatchConcurrencyTest, QueryWorkersComputeAheadOnceEachAndHandOverInOrder) {
  constexpr int kTasks = 200;
  for (const std::size_t helpers : {std::size_t{0}, std::size_t{2}}) {
    QueryWorkers workers(helpers);
    auto queue = SerialQueue::make("test.callbacks");
    MainQueue main;
    std::vector<std::atomic<int>> computed(kTasks);
    std::atomic<int> onHelpers{0};
    std::vector<int> handedOver;  // only touched on `queue`
    std::atomic<bool> done{false};
    for (int i = 0; i < kTasks; ++i) {
      auto value = std::make_shared<int>(-1);
      // The first computation is slow, so that the ones after it are computed meanwhile.
      auto task = workers.offer([&, i, value] {
        if (i == 0) {
          std::this_thread::sleep_for(20ms);
        }
        ++computed[static_cast<std::size_t>(i)];
        onHelpers += queue->isCurrent() ? 0 : 1;
        *value = i;
      });
      queue->async([&, i, task, value] {
        workers.finish(*task);
        handedOver.push_back(*value == i ? i : -1);
        done = i == kTasks - 1;
      });
    }
    ASSERT_TRUE(main.runUntil([&] { return done.load(); }, 10s));
    std::vector<int> inOrder(kTasks);
    std::iota(inOrder.begin(), inOrder.end(), 0);
    EXPECT_EQ(handedOver, inOrder);
    EXPECT_TRUE(std::all_of(computed.begin(), computed.end(), [](auto& n) { return n == 1; }));
    EXPECT_EQ(onHelpers.load() > 0, helpers > 0);  // helpers compute ahead, if there are any
  }
}

}  // namespace
}  // namespace velk::platform
