#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <numeric>
#include <thread>
#include <vector>

#include "velk/platform/DispatchGroup.h"
#include "velk/platform/DispatchQueue.h"

namespace velk::platform {
namespace {

using namespace std::chrono_literals;

TEST(DispatchConcurrencyTest, SerialQueueRunsInOrderOnItsOwnThread) {
  auto queue = SerialQueue::make("test.serial");
  std::vector<int> seen;
  std::atomic<bool> offCaller{true};
  const auto caller = std::this_thread::get_id();
  MainQueue main;
  for (int i = 0; i < 100; ++i) {
    queue->async([&, i] {
      if (std::this_thread::get_id() == caller || !queue->isCurrent())
        offCaller = false;
      seen.push_back(i);
    });
  }
  std::atomic<bool> done{false};
  queue->async([&] { done = true; });
  ASSERT_TRUE(main.runUntil([&] { return done.load(); }, 5s));
  EXPECT_TRUE(offCaller);
  std::vector<int> expected(100);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(seen, expected);
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

}  // namespace
}  // namespace velk::platform
