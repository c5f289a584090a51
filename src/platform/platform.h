#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace kestravine {

using Task = std::function<void()>;
using Delay = std::chrono::milliseconds;

// What the core needs of the host toolkit: a main queue, timers, opening a URL, quitting.
//
// Threading: post() may be called from any thread; everything else is called on
// the main thread. Tasks queued with post()/postAfter() run on the main thread, first in
// first out; tasks of runInBackgroundAfter() run on some other thread.
class Platform {
 public:
  virtual ~Platform() = default;

  virtual void post(Task task) = 0;
  // Runs the task on the main queue no earlier than `delay` from now. Cannot be cancelled.
  virtual void postAfter(Delay delay, Task task) = 0;
  // Runs the task off the main thread no earlier than `delay` from now. Cannot be cancelled.
  virtual void runInBackgroundAfter(Delay delay, Task task) = 0;
  // Asks the desktop to open the address in the default browser. `done` runs on the main queue,
  // once, never from inside the call: false when the opener could not be started or said it
  // failed, true when it succeeded or still runs after a short, bounded time (an opener that
  // holds the browser in the foreground).
  virtual void openUrl(const std::string& url, std::function<void(bool opened)> done) = 0;
  // Ends the application through the toolkit's normal shutdown.
  virtual void quit() = 0;
};

// The platform of this process. Installed once by the entry point (or a test) before any core
// object is used, and kept until the process ends.
Platform& platform();
void installPlatform(Platform& platform);

}  // namespace kestravine
