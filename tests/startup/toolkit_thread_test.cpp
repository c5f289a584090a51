#include "startup/toolkit_thread.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QTest>
#include <QThreadPool>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

namespace kestravine {
namespace {

bool threadExists(pid_t tid) {
  return std::filesystem::exists("/proc/self/task/" + std::to_string(tid));
}

// The pool would end an idle thread at once here; the kept thread stays, and takes later work
// itself, so the toolkit never asks the system for another thread while the launcher runs.
TEST(ToolkitThread, OutlivesThePoolsIdleExpiry) {
  QThreadPool* pool = QThreadPool::globalInstance();
  pool->setExpiryTimeout(0);
  std::atomic<pid_t> first = 0;
  ASSERT_TRUE(keepToolkitThread([&] { first = gettid(); }));
  // Not waitForDone(), which ends the pool's threads.
  ASSERT_TRUE(QTest::qWaitFor([&] { return first != 0 && pool->activeThreadCount() == 0; }));
  // Time is what is under test: an expiring thread would have ended a thousand times over.
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_TRUE(threadExists(first));
  std::atomic<pid_t> later = 0;
  pool->start([&] { later = gettid(); });
  ASSERT_TRUE(QTest::qWaitFor([&] { return later != 0; }));
  EXPECT_EQ(later, first);
}

}  // namespace
}  // namespace kestravine
