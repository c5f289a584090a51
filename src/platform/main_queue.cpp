#include "platform/main_queue.h"

#include <utility>

namespace kestravine {

MainQueue::MainQueue(std::function<void()> wake) : wake_(std::move(wake)) {}

void MainQueue::push(Task task) {
  std::unique_lock lock(mutex_);
  queued_.push_back(std::move(task));
  wakeIfIdle(lock);
}

void MainQueue::wakeIfIdle(std::unique_lock<std::mutex>& lock) {
  if (wakePending_) return;
  wakePending_ = true;
  lock.unlock();
  wake_();
}

bool MainQueue::drain(std::chrono::steady_clock::duration budget) {
  const auto deadline = std::chrono::steady_clock::now() + budget;
  // Tasks can be slices of a flood of lines that queue themselves again: the clock is read
  // before each task but the very first, also across refills of the batch.
  bool first = true;
  for (;;) {
    if (running_.empty()) {
      std::lock_guard lock(mutex_);
      wakePending_ = false;
      if (queued_.empty()) return false;
      running_.swap(queued_);
    }
    for (; !running_.empty(); first = false) {
      if (!first && std::chrono::steady_clock::now() >= deadline) return true;
      Task task = std::move(running_.front());
      running_.pop_front();
      task();
    }
  }
}

}  // namespace kestravine
