#pragma once

namespace kestravine {

// Keeps the toolkit's English notes that tell the user nothing they can act on off the
// terminal: whatever the launcher prints is its own, in Chinese. Today that is Qt's note that
// XDG_RUNTIME_DIR is not set (a root shell, a session started from cron or Xvfb), for which Qt
// falls back to a folder of its own. Every other message passes to the handler installed before.
//
// Threading: call once, on the main thread, before the application is created.
void filterToolkitMessages();

}  // namespace kestravine
