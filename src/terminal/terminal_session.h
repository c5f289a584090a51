#pragma once

#include <termios.h>

#include <functional>

#include "system/unique_fd.h"

namespace kestravine {

class PollPlatform;

// The terminal while the launcher runs in it: keys come one at a time and are not echoed (Ctrl-C
// is a key, not a signal), and the terminal's own settings come back however the launcher
// ends: when the session ends, and on a second termination signal or a crash, whose handler
// puts them back before the default action. SIGTERM, SIGHUP and SIGINT (from kill) are told to
// `onSignal` with its number, SIGWINCH to `onResize`, through a pipe the loop watches.
//
// Threading: the main thread; one session at a time. The handlers only write to the pipe and
// restore the terminal, both async-signal-safe.
class TerminalSession {
 public:
  // `interactive`: stdin is a terminal to read keys from; otherwise only the signals are taken.
  TerminalSession(PollPlatform& loop, bool interactive, std::function<void(int)> onSignal,
                  std::function<void()> onResize, std::function<void(char key)> onKey);
  ~TerminalSession();
  TerminalSession(const TerminalSession&) = delete;
  TerminalSession& operator=(const TerminalSession&) = delete;

  // The terminal's width in columns; 80 where it cannot be told.
  static int width();

 private:
  void readSignals();
  void readKeys();

  PollPlatform& loop_;
  bool interactive_;
  bool raw_ = false;
  UniqueFd signalRead_;
  std::function<void(int)> onSignal_;
  std::function<void()> onResize_;
  std::function<void(char)> onKey_;
};

}  // namespace kestravine
