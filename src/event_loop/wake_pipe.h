#pragma once

#include <QObject>
#include <functional>
#include <string_view>

#include "system/unique_fd.h"

class QSocketNotifier;

namespace kestravine {

// Wakes the GUI thread's event loop from elsewhere: a byte written to a pipe, whose read end a
// socket notifier watches. Writing is a plain write(), so any thread and any signal handler may
// do it without touching a Qt object; `onWake` then runs on the GUI thread with the bytes that
// came since the last wake-up.
//
// Threading: create on the GUI thread after the QApplication; writeFd() and wake() from anywhere.
class WakePipe final : public QObject {
 public:
  explicit WakePipe(std::function<void(std::string_view bytes)> onWake, QObject* parent = nullptr);
  ~WakePipe() override;

  // False if the system had no descriptor left for the pipe; error() then says why (errno).
  bool isValid() const { return static_cast<bool>(write_); }
  int error() const { return error_; }
  // For a signal handler, which may only call write() on it.
  int writeFd() const { return write_.get(); }
  // Writes `byte`; a full pipe already guarantees a wake-up, so a failed write loses nothing.
  void wake(unsigned char byte = 1) const;
  // Without the event loop (the display has gone): waits up to `timeoutMs` for a wake-up and
  // empties the pipe. GUI thread only.
  void waitWithoutEventLoop(int timeoutMs);

 private:
  UniqueFd read_;
  UniqueFd write_;
  QSocketNotifier* notifier_ = nullptr;
  int error_ = 0;
};

}  // namespace kestravine
