#pragma once

#include <QString>

class QWidget;

namespace kestravine::snapshot {

// Snapshot mode: when `path` is not empty, 4.0 s from now `content` is rendered (without the
// title bar, at the screen's pixel ratio) into `path` as PNG, and then the application quits.
// Every failure (no widget, no image, a file that cannot be written) is silent; the application
// quits all the same. GUI thread.
void arm(QWidget* content, const QString& path);

// Renders `content` into a PNG file; false if that failed. GUI thread.
bool write(QWidget* content, const QString& path);

}  // namespace kestravine::snapshot
