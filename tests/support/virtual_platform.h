#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/main_queue.h"
#include "platform/platform.h"

namespace kestravine {

// A platform for tests and benchmarks: the calling thread is the main thread, and it runs the
// main queue only inside runUntil() and advance(). Delayed tasks wait on a virtual clock that
// moves only when advance() moves it, so a ten-second delay costs no real time.
//
// Threading: post() from any thread; everything else from the one thread that acts
// as the main thread. Background tasks run on that thread too, when their virtual time comes.
class VirtualPlatform final : public Platform {
 public:
  VirtualPlatform();

  void post(Task task) override;
  void postAfter(Delay delay, Task task) override;
  void runInBackgroundAfter(Delay delay, Task task) override;
  void openUrl(const std::string& url, std::function<void(bool)> done) override;
  // Whether the opener succeeds; true unless a test says otherwise.
  void setCanOpen(bool canOpen) { canOpen_ = canOpen; }
  void quit() override;

  // Runs main-queue tasks as they arrive until `done()` holds, checked after every batch.
  // Returns false if it does not hold within `limit` of real time (a test failure, not a wait),
  // also if it came to hold by then without a post to tell: nothing may wait on a change that
  // wakes nobody.
  bool runUntil(const std::function<bool()>& done,
                std::chrono::steady_clock::duration limit = std::chrono::seconds(30));

  // Moves the virtual clock forward, running due delayed tasks in deadline order, each
  // followed by whatever it queued on the main queue.
  void advance(Delay delay);
  // Moves the clock to the earliest pending delay and runs what is due then. False if none.
  bool advanceToNextTimer();

  // From now on, background tasks run on a thread of their own after the delay in real time,
  // so a test can prove the real path; main-queue delays stay virtual.
  void setRealTimeBackground(bool real) { realTimeBackground_ = real; }

  Delay now() const { return now_; }
  std::size_t pendingTimers() const { return timers_.size(); }
  // Pending delayed tasks for the main queue (postAfter), leaving background ones aside.
  std::size_t pendingMainTimers() const;
  // Deadline of the earliest pending delayed task.
  Delay nextTimerAt() const;
  const std::vector<std::string>& openedUrls() const { return openedUrls_; }
  // When openUrl() was last called, on the virtual clock.
  Delay openedAt() const { return openedAt_; }
  int quitCount() const { return quitCount_; }
  // When quit() was last called, on the virtual clock.
  Delay quitAt() const { return quitAt_; }

 private:
  void drainAll();

  MainQueue queue_;
  std::mutex wakeMutex_;
  std::condition_variable wakeCv_;
  bool woken_ = false;  // guarded by wakeMutex_

  Delay now_{0};
  struct Timer {
    Task task;
    bool background;
  };
  std::multimap<Delay, Timer> timers_;  // equal deadlines keep their order of scheduling
  std::vector<std::string> openedUrls_;
  bool canOpen_ = true;
  Delay openedAt_{0};
  bool realTimeBackground_ = false;
  int quitCount_ = 0;
  Delay quitAt_{0};
};

}  // namespace kestravine
