#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

#include "platform/platform.h"

namespace kestravine {

// A first-in first-out queue of tasks for the main thread, fed from any thread.
//
// Threading: push() from any thread; drain() on the main thread only. The wake
// callback runs on the pushing thread, outside the lock, once per batch of pushes: it is called
// when the queue gains work while no wake-up is outstanding, and the next drain() clears the
// outstanding wake-up. So a flood of pushes costs one wake-up per drain, not one per task.
class MainQueue {
 public:
  explicit MainQueue(std::function<void()> wake);

  void push(Task task);

  // Runs queued tasks in order, including those queued while it runs, until none is left or
  // `budget` has passed. Returns true when tasks remain; the caller then drains again later
  // (after letting its own events through) without waiting for another wake-up.
  bool drain(std::chrono::steady_clock::duration budget);

 private:
  void wakeIfIdle(std::unique_lock<std::mutex>& lock);

  std::function<void()> wake_;
  std::mutex mutex_;
  std::deque<Task> queued_;   // guarded by mutex_
  bool wakePending_ = false;  // guarded by mutex_
  std::deque<Task> running_;  // main thread only: taken from queued_, not yet run
};

}  // namespace kestravine
