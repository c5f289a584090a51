#include "support/virtual_platform.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace kestravine {

VirtualPlatform::VirtualPlatform()
    : queue_([this] {
        std::lock_guard lock(wakeMutex_);
        woken_ = true;
        wakeCv_.notify_one();
      }) {}

void VirtualPlatform::post(Task task) {
  queue_.push(std::move(task));
}

void VirtualPlatform::postAfter(Delay delay, Task task) {
  timers_.emplace(now_ + delay, Timer{std::move(task), false});
}

void VirtualPlatform::runInBackgroundAfter(Delay delay, Task task) {
  if (realTimeBackground_) {
    std::thread([delay, task = std::move(task)] {
      std::this_thread::sleep_for(delay);
      task();
    }).detach();
    return;
  }
  timers_.emplace(now_ + delay, Timer{std::move(task), true});
}

std::size_t VirtualPlatform::pendingMainTimers() const {
  return static_cast<std::size_t>(std::count_if(
      timers_.begin(), timers_.end(), [](const auto& timer) { return !timer.second.background; }));
}

void VirtualPlatform::openUrl(const std::string& url, std::function<void(bool)> done) {
  if (canOpen_) {
    openedUrls_.push_back(url);
    openedAt_ = now_;
  }
  post([done = std::move(done), opened = canOpen_] { done(opened); });
}

void VirtualPlatform::quit() {
  ++quitCount_;
  quitAt_ = now_;
}

void VirtualPlatform::drainAll() {
  {
    std::lock_guard lock(wakeMutex_);
    woken_ = false;
  }
  while (queue_.drain(std::chrono::hours(1))) {
  }
}

bool VirtualPlatform::runUntil(const std::function<bool()>& done,
                               std::chrono::steady_clock::duration limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    drainAll();
    if (done()) return true;
    std::unique_lock lock(wakeMutex_);
    if (!wakeCv_.wait_until(lock, deadline, [this] { return woken_; })) return false;
  }
}

Delay VirtualPlatform::nextTimerAt() const {
  return timers_.empty() ? now_ : timers_.begin()->first;
}

void VirtualPlatform::advance(Delay delay) {
  const Delay target = now_ + delay;
  while (!timers_.empty() && timers_.begin()->first <= target) {
    auto first = timers_.begin();
    now_ = first->first;
    Task task = std::move(first->second.task);
    timers_.erase(first);
    task();
    drainAll();
  }
  now_ = target;
}

bool VirtualPlatform::advanceToNextTimer() {
  if (timers_.empty()) return false;
  advance(timers_.begin()->first - now_);
  return true;
}

}  // namespace kestravine
