#pragma once

namespace kestravine::accessibility {

// Makes the launcher's own painted widgets readable by screen readers through Qt's
// accessibility layer: the log (a read-only text of all its lines) and the disclosure toggle (a
// button that is expandable, and expanded or collapsed). Qt's own widgets need nothing.
// Call once, on the GUI thread, after the QApplication exists; further calls do nothing.
void install();

}  // namespace kestravine::accessibility
