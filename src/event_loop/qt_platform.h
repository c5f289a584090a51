#pragma once

#include <QObject>
#include <chrono>
#include <map>
#include <utility>

#include "event_loop/wake_pipe.h"
#include "platform/main_queue.h"
#include "platform/platform.h"

namespace kestravine {

// The platform of the Qt application: the main queue is drained on the GUI thread, delays are
// Qt timers, URLs open in the desktop's browser, quitting ends the Qt event loop.
//
// Threading: construct on the GUI thread after QApplication, and check error() before use. post()
// from any thread: it only appends to the queue and, once per batch, wakes the GUI thread through a
// WakePipe, so no other thread ever touches a Qt object. Everything else on the GUI thread. Meant
// to live until the process ends (never destroyed), so that threads still running at exit can post
// harmlessly.
class QtPlatform final : public QObject, public Platform {
 public:
  QtPlatform();
  // Why the platform cannot work (errno of its wake-up pipe); 0 when it can.
  int error() const { return wake_.isValid() ? 0 : wake_.error(); }

  void post(Task task) override;
  void postAfter(Delay delay, Task task) override;
  void runInBackgroundAfter(Delay delay, Task task) override;
  void openUrl(const std::string& url, std::function<void(bool)> done) override;
  void quit() override;

  // The display has gone: runs the main queue and the due background tasks on this thread
  // without Qt's event loop (which would only end the process) until quit() is asked for. The
  // caller then ends the process without returning to Qt. GUI thread only.
  void runWithoutDisplayUntilQuit();

 private:
  void drain();

  WakePipe wake_;
  MainQueue queue_;
  bool quitAsked_ = false;
  // Background tasks not yet handed to a thread, by when they are due; GUI thread only.
  std::map<int, std::pair<std::chrono::steady_clock::time_point, Task>> background_;
  int nextBackground_ = 0;
};

}  // namespace kestravine
