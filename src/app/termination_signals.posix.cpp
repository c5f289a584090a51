#include "app/termination_signals.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <atomic>

namespace kestravine {

namespace {

int wakeFds[2] = {-1, -1};
std::atomic<int> received{0};

// Async-signal-safe only: an atomic, write(), signal() and raise().
void onSignal(int number) {
  if (received.fetch_add(1) > 0) {
    // Asked twice: the user means it. The signal is blocked while this handler runs, so it
    // takes effect, with its default action, as soon as the handler returns.
    ::signal(number, SIG_DFL);
    ::raise(number);
    return;
  }
  const auto byte = static_cast<unsigned char>(number);
  (void)!::write(wakeFds[1], &byte, 1);
}

}  // namespace

TerminationSignals::TerminationSignals(std::function<void()> onSignalRead, QObject* parent)
    : QObject(parent) {
  if (pipe2(wakeFds, O_CLOEXEC | O_NONBLOCK) != 0) return;  // the signals keep their defaults
  auto* notifier = new QSocketNotifier(wakeFds[0], QSocketNotifier::Read, this);
  connect(notifier, &QSocketNotifier::activated, this, [onSignalRead = std::move(onSignalRead)] {
    unsigned char bytes[16];
    while (::read(wakeFds[0], bytes, sizeof bytes) > 0) {
    }
    onSignalRead();
  });
  struct sigaction action {};
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (int number : {SIGTERM, SIGINT, SIGHUP}) sigaction(number, &action, nullptr);
}

}  // namespace kestravine
