#include "platform/main_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace kestravine {
namespace {

TEST(MainQueue, KeepsEachThreadsOrderAndWakesOncePerBatch) {
  std::atomic<int> wakes{0};
  MainQueue queue([&] { ++wakes; });
  constexpr int kThreads = 4;
  constexpr int kTasks = 20000;
  std::vector<std::vector<int>> seen(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kTasks; ++i) queue.push([&, t, i] { seen[t].push_back(i); });
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wakes.load(), 1);  // nobody drained, so one wake-up covers all pushes
  EXPECT_FALSE(queue.drain(std::chrono::hours(1)));
  for (const auto& order : seen) {
    ASSERT_EQ(order.size(), static_cast<size_t>(kTasks));
    for (int i = 0; i < kTasks; ++i) ASSERT_EQ(order[static_cast<size_t>(i)], i);
  }
  queue.push([] {});
  EXPECT_EQ(wakes.load(), 2);  // a drain re-arms the wake-up
}

TEST(MainQueue, DrainOutOfBudgetResumesInOrder) {
  MainQueue queue([] {});
  std::vector<int> order;
  for (int i = 0; i < 1000; ++i) queue.push([&order, i] { order.push_back(i); });
  EXPECT_TRUE(queue.drain(std::chrono::nanoseconds(0)));
  EXPECT_LT(order.size(), 1000u);
  queue.push([&order] { order.push_back(1000); });  // queued after the interrupted batch
  EXPECT_FALSE(queue.drain(std::chrono::hours(1)));
  ASSERT_EQ(order.size(), 1001u);
  for (int i = 0; i <= 1000; ++i) EXPECT_EQ(order[static_cast<size_t>(i)], i);
}

TEST(MainQueue, TasksQueuedWhileDrainingRunInTheSameDrain) {
  MainQueue queue([] {});
  std::vector<int> order;
  queue.push([&] {
    order.push_back(1);
    queue.push([&] { order.push_back(3); });
  });
  queue.push([&] { order.push_back(2); });
  EXPECT_FALSE(queue.drain(std::chrono::hours(1)));
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

}  // namespace
}  // namespace kestravine
