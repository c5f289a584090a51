#include "event_loop/termination_signals.h"

#include "event_loop/wake_pipe.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>

namespace kestravine {

namespace {

constexpr int kSignals[] = {SIGTERM, SIGINT, SIGHUP};
int wakeFd = -1;
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
  (void)!::write(wakeFd, &byte, 1);
}

}  // namespace

TerminationSignals::TerminationSignals(std::function<void()> onSignalRead, QObject* parent)
    : QObject(parent) {
  auto* wake = new WakePipe(
      [onSignalRead = std::move(onSignalRead)](std::string_view) { onSignalRead(); }, this);
  if (!wake->isValid()) return;  // the signals keep their defaults
  wakeFd = wake->writeFd();
  struct sigaction action {};
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (int number : kSignals) sigaction(number, &action, nullptr);
}

TerminationSignals::~TerminationSignals() {
  if (wakeFd < 0) return;
  for (int number : kSignals) ::signal(number, SIG_DFL);
  wakeFd = -1;
}

}  // namespace kestravine
