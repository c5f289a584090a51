#include "process/line_delivery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "support/test_platform.h"

namespace kestravine::testing {
namespace {

LineBatch batchOf(const std::vector<std::string>& lines) {
  LineBatch batch;
  for (const auto& line : lines) {
    batch.text += line;
    batch.ends.push_back(batch.text.size());
  }
  return batch;
}

// One delivery holds the main thread for a few milliseconds at most: with lines that take a
// millisecond each, what was queued meanwhile runs before the fourth.
TEST(LineDelivery, YieldsTheMainThreadAfterEachSlice) {
  std::vector<std::string> order;
  auto delivery = LineDelivery::create([&](std::string line) {
    if (line == "1") platform().post([&] { order.push_back("other task"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(1));  // at least this long a line
    order.push_back(line);
  });
  LineBatch batch = batchOf({"1", "2", "3", "4", "5", "6", "7", "8"});
  delivery->post(batch);
  ASSERT_TRUE(platform().runUntil([&] { return order.size() == 9; }));
  EXPECT_LE(std::find(order.begin(), order.end(), "other task") - order.begin(), 3);
}

// With more than the bound waiting, a reader's post returns only once the main thread has taken
// lines off: a flooding command waits, as it would for a terminal.
TEST(LineDelivery, HoldsTheReaderWhileTooMuchWaits) {
  std::atomic<std::size_t> delivered{0};
  auto delivery = LineDelivery::create([&](std::string) { ++delivered; });
  const std::vector<std::string> big(1000, std::string(LineDelivery::kMaxPendingBytes / 999, 'x'));
  LineBatch first = batchOf(big);
  delivery->post(first);  // more than the bound, taken since nothing waited
  std::atomic<std::size_t> deliveredWhenTaken{0};
  std::atomic<bool> taken{false};
  std::thread reader([&] {
    LineBatch next = batchOf({"next"});
    delivery->post(next);
    deliveredWhenTaken = delivered.load();
    taken = true;
    platform().post([] {});  // wakes the main thread's wait for `taken`, which nothing else does
  });
  // The main thread takes no line off until the reader is held or has got through.
  while (delivery->held() == 0 && !taken) std::this_thread::yield();
  EXPECT_FALSE(taken);
  ASSERT_TRUE(platform().runUntil([&] { return taken && delivered == big.size() + 1; }));
  reader.join();
  EXPECT_GE(deliveredWhenTaken, big.size());
}

}  // namespace
}  // namespace kestravine::testing
