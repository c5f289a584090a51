#pragma once

#include <functional>

namespace kestravine {

// What the toolkit says that the launcher answers in its own way.
//
// Notes that tell the user nothing they can act on stay off the terminal: whatever the launcher
// prints is its own, in Chinese. Today that is Qt's note that XDG_RUNTIME_DIR is not set (a root
// shell, a session started from cron or Xvfb), for which Qt falls back to a folder of its own.
//
// A display that has gone (the X server or the Wayland compositor died, a logout left the
// launcher behind) Qt reports in one message and then ends the process at once, which would
// leave a running install to die half done at its next write. `onDisplayLost` runs instead, on
// the GUI thread, and is not expected to return; reported on another thread, the message is
// carried to the GUI thread, and the reporting thread waits there for the process to end.
//
// Every other message passes to the handler installed before.
//
// Threading: call once, on the GUI thread, before the application is created.
void filterToolkitMessages(std::function<void()> onDisplayLost);

}  // namespace kestravine
