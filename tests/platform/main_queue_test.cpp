#include "platform/main_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <numeric>
#include <thread>

namespace kestravine {
namespace {

// Tasks from four threads keep each thread's order and wake the main thread once, until a drain
// re-arms the wake-up. A drain out of time resumes where it stopped, before later tasks; tasks
// queued while draining run in the same drain.
TEST(MainQueue, KeepsOrderAcrossThreadsBudgetsAndTasksQueuedByTasks) {
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
  EXPECT_TRUE(queue.drain(std::chrono::nanoseconds(0)));
  queue.push([&] {
    seen[0].push_back(20000);
    queue.push([&] { seen[0].push_back(20001); });
  });
  EXPECT_EQ(wakes.load(), 2);
  EXPECT_FALSE(queue.drain(std::chrono::hours(1)));
  std::vector<int> expected(20002);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(seen[0], expected);
  expected.resize(20000);
  for (std::size_t t = 1; t < seen.size(); ++t) EXPECT_EQ(seen[t], expected);
}

}  // namespace
}  // namespace kestravine
