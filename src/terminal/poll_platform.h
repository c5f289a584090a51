#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/main_queue.h"
#include "platform/opener.h"
#include "platform/platform.h"
#include "system/unique_fd.h"

namespace kestravine {

// The platform of the terminal front end: a main loop of its own on poll(2), with no window
// toolkit. The main queue is woken through a pipe, delays are kept in order on the steady clock,
// background tasks get threads of their own, and the front end's descriptors (the terminal,
// the one-launcher socket, signals) are watched beside them. Where a desktop can be asked
// (DISPLAY or WAYLAND_DISPLAY set and an opener found) the address opens in its browser;
// elsewhere (over SSH) `showAddress` gets it, and the page counts as given to the user.
//
// Threading: post() from any thread; everything else on the thread that runs run().
class PollPlatform final : public Platform {
 public:
  explicit PollPlatform(std::function<void(const std::string&)> showAddress);
  // Why the loop cannot run (errno of its wake-up pipe); 0 when it can.
  int error() const { return error_; }

  void post(Task task) override;
  void postAfter(Delay delay, Task task) override;
  void runInBackgroundAfter(Delay delay, Task task) override;
  void openUrl(const std::string& url, std::function<void(bool)> done) override;
  void quit() override;

  // Calls `onReadable` on this thread whenever `fd` can be read, until unwatched.
  void watch(int fd, std::function<void()> onReadable);
  void unwatch(int fd);
  // Runs until quit(); returns at once if it was asked already.
  void run();

 private:
  using Clock = std::chrono::steady_clock;
  void runDueTimers();
  void pollOpeners();

  std::function<void(const std::string&)> showAddress_;
  UniqueFd wakeRead_;
  UniqueFd wakeWrite_;
  int error_ = 0;
  MainQueue queue_;
  std::multimap<Clock::time_point, std::pair<Task, bool>> timers_;  // bool: background
  std::map<int, std::function<void()>> watched_;
  std::vector<std::pair<Opener, std::function<void(bool)>>> openers_;
  bool quit_ = false;
};

}  // namespace kestravine
