#pragma once

#include <QObject>
#include <functional>

namespace kestravine {

// SIGTERM, SIGINT and SIGHUP taken like the user's close of the window: the signal handler only
// writes the signal's number to a pipe, and `onSignal` runs when the event loop reads it. A
// second signal ends the process at once, by that signal's default action.
//
// Threading: create once, on the GUI thread, after the QApplication; `onSignal` runs there.
// The handlers stay installed while it lives; then the signals get their default actions back,
// since the pipe the handler writes to goes with it.
class TerminationSignals final : public QObject {
 public:
  explicit TerminationSignals(std::function<void()> onSignal, QObject* parent = nullptr);
  ~TerminationSignals() override;
};

}  // namespace kestravine
