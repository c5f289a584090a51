#pragma once

#include <functional>
#include <string>

namespace kestravine {

// A desktop the toolkit cannot reach, as one line on stderr and exit status 1.
//
// Qt answers a display plugin ("platform" in Qt's words) that cannot start (an X server that is
// gone, a Wayland socket that is not there, a plugin name it does not know) with several English
// lines, advice to reinstall the application, and abort(), which dumps core. While a DisplayGuard
// lives, everything written to stderr (Qt's warnings, but also libwayland's, which bypass Qt) is
// held back, and Qt's fatal message is replaced by one Chinese line naming the plugins Qt tried and
// the values of DISPLAY and WAYLAND_DISPLAY; then the process ends with _Exit(1). Qt still tries
// its whole list of plugins first, so a Wayland desktop without a working Wayland plugin still
// falls back to X11. When the guard ends, what was held back is written out and Qt's message
// handler is restored.
//
// Threading: one guard at a time, created and destroyed on the thread that creates the
// application.
class DisplayGuard {
 public:
  // `forcedPlugin`: the display plugin asked for by QT_QPA_PLATFORM or -platform, if any; named
  // when Qt's own messages name none. `beforeExit` runs right before the process ends (it
  // removes the one-launcher guard's files, which no destructor will).
  explicit DisplayGuard(std::string forcedPlugin, std::function<void()> beforeExit = {});
  ~DisplayGuard();
  DisplayGuard(const DisplayGuard&) = delete;
  DisplayGuard& operator=(const DisplayGuard&) = delete;
};

}  // namespace kestravine
