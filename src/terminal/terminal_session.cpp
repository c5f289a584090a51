#include "terminal/terminal_session.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

#include "system/system_calls.h"
#include "terminal/poll_platform.h"

namespace kestravine {

namespace {

// For the handlers: plain values only.
termios saved{};
volatile sig_atomic_t rawNow = 0;
volatile sig_atomic_t signalWrite = -1;
volatile sig_atomic_t signalsSeen = 0;

void restoreTerminal() {
  if (rawNow) ::tcsetattr(STDIN_FILENO, TCSANOW, &saved);
}

void onTermination(int signal) {
  const bool again = signalsSeen != 0;
  signalsSeen = 1;
  if (again || signalWrite < 0) {
    // A second one ends the launcher at once, as in the window; the terminal is put back first.
    restoreTerminal();
    ::signal(signal, SIG_DFL);
    ::raise(signal);
    return;
  }
  const char byte = static_cast<char>(signal);
  (void)!::write(signalWrite, &byte, 1);
}

void onResize(int) {
  const char byte = static_cast<char>(SIGWINCH);
  if (signalWrite >= 0) (void)!::write(signalWrite, &byte, 1);
}

void onCrash(int signal) {
  restoreTerminal();
  ::signal(signal, SIG_DFL);
  ::raise(signal);
}

}  // namespace

TerminalSession::TerminalSession(PollPlatform& loop, bool interactive,
                                 std::function<void(int)> onSignal, std::function<void()> onResize,
                                 std::function<void(char)> onKey)
    : loop_(loop),
      interactive_(interactive),
      onSignal_(std::move(onSignal)),
      onResize_(std::move(onResize)),
      onKey_(std::move(onKey)) {
  if (auto pipe = system_calls::makePipe(O_NONBLOCK)) {
    signalRead_ = std::move(pipe->read);
    signalWrite = pipe->write.release();
    loop_.watch(signalRead_.get(), [this] { readSignals(); });
  }
  for (int signal : {SIGTERM, SIGHUP, SIGINT}) ::signal(signal, onTermination);
  ::signal(SIGWINCH, kestravine::onResize);
  if (!interactive_) return;
  if (::tcgetattr(STDIN_FILENO, &saved) == 0) {
    termios raw = saved;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG | IEXTEN);
    raw.c_iflag &= ~static_cast<tcflag_t>(ICRNL | IXON);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    raw_ = ::tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
    rawNow = raw_ ? 1 : 0;
  }
  for (int signal : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL}) ::signal(signal, onCrash);
  loop_.watch(STDIN_FILENO, [this] { readKeys(); });
}

TerminalSession::~TerminalSession() {
  loop_.unwatch(STDIN_FILENO);
  if (signalRead_) loop_.unwatch(signalRead_.get());
  restoreTerminal();
  rawNow = 0;
  for (int signal : {SIGTERM, SIGHUP, SIGINT, SIGWINCH}) ::signal(signal, SIG_DFL);
  if (signalWrite >= 0) ::close(signalWrite);
  signalWrite = -1;
}

int TerminalSession::width() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

void TerminalSession::readSignals() {
  char signals[64];
  const ssize_t n = ::read(signalRead_.get(), signals, sizeof signals);
  for (ssize_t i = 0; i < n; ++i) {
    if (signals[i] == SIGWINCH)
      onResize_();
    else
      onSignal_(signals[i]);
  }
}

void TerminalSession::readKeys() {
  char keys[64];
  const ssize_t n = ::read(STDIN_FILENO, keys, sizeof keys);
  if (n <= 0) {
    // The terminal has gone (its window closed): as a hang-up.
    loop_.unwatch(STDIN_FILENO);
    if (n == 0 || errno != EAGAIN) onSignal_(SIGHUP);
    return;
  }
  // An escape sequence (an arrow key, a function key) arrives in one read: only a lone Escape
  // is the key.
  if (keys[0] == '\x1b') {
    if (n == 1) onKey_('\x1b');
    return;
  }
  for (ssize_t i = 0; i < n; ++i) onKey_(keys[i]);
}

}  // namespace kestravine
