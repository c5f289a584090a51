#include "platform/main_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <numeric>
#include <thread>

namespace kestravine {
namespace {

// Tasks from four threads: each thread's order kept, one wake-up until a drain re-arms it.
TEST(MainQueue, KeepsEachThreadsOrderAndWakesOncePerBatch) {
  std::atomic<int> wakes{0};
  MainQueue queue([&] { ++wakes; });
  std::vector<std::vector<int>> seen(4);
  std::vector<std::thread> threads;
  for (auto& order : seen) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) queue.push([&order, i] { order.push_back(i); });
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wakes.load(), 1);
  EXPECT_FALSE(queue.drain(std::chrono::hours(1)));
  std::vector<int> expected(20000);
  std::iota(expected.begin(), expected.end(), 0);
  for (const auto& order : seen) EXPECT_EQ(order, expected);
  queue.push([] {});
  EXPECT_EQ(wakes.load(), 2);
}

// A drain out of time resumes where it stopped, before later tasks; tasks queued by a task run
// in the same drain.
TEST(MainQueue, DrainsInOrderAcrossBudgetsAndNestedPushes) {
  MainQueue queue([] {});
  std::vector<int> order;
  for (int i = 0; i < 1000; ++i) queue.push([&order, i] { order.push_back(i); });
  EXPECT_TRUE(queue.drain(std::chrono::nanoseconds(0)));
  EXPECT_LT(order.size(), 1000u);
  queue.push([&] {
    order.push_back(1000);
    queue.push([&] { order.push_back(1002); });
  });
  queue.push([&] { order.push_back(1001); });
  EXPECT_FALSE(queue.drain(std::chrono::hours(1)));
  std::vector<int> expected(1003);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(order, expected);
}

}  // namespace
}  // namespace kestravine
