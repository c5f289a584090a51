#pragma once

class QWidget;

namespace kestravine::accessibility {

// Makes the launcher's own painted widgets readable by screen readers through Qt's
// accessibility layer: the log (a read-only text of all its lines) and the disclosure toggle (a
// button that is expandable, and expanded or collapsed). Qt's own widgets need nothing.
// Call once, on the GUI thread, after the QApplication exists; further calls do nothing.
void install();

// Tells screen readers that `widget` expanded or collapsed (its accessible state has changed
// already). Qt's AT-SPI bridge drops changes of these states; on Linux they also go out on
// AT-SPI directly.
void expandedChanged(QWidget* widget);

}  // namespace kestravine::accessibility
