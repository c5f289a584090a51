#pragma once

#include <QObject>

#include "app/wake_pipe.h"
#include "platform/main_queue.h"
#include "platform/platform.h"

namespace kestravine {

// The platform of the Qt application: the main queue is drained on the GUI thread, delays are
// Qt timers, URLs open in the desktop's browser, quitting ends the Qt event loop.
//
// Threading: construct on the GUI thread after QApplication. post() from any thread: it only
// appends to the queue and, once per batch, wakes the GUI thread through a WakePipe, so no other
// thread ever touches a Qt object. Everything else on the GUI thread. Meant to live until the
// process ends (never destroyed), so that threads still running at exit can post harmlessly.
class QtPlatform final : public QObject, public Platform {
 public:
  QtPlatform();

  void post(Task task) override;
  void postAfter(Delay delay, Task task) override;
  void runInBackgroundAfter(Delay delay, Task task) override;
  bool openUrl(const std::string& url) override;
  void quit() override;

 private:
  void drain();

  WakePipe wake_;
  MainQueue queue_;
};

}  // namespace kestravine
