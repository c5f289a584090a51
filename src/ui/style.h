#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>

namespace kestravine::style {

// Sizes are logical pixels (the launcher's lengths and font sizes are in points of a 72-dpi
// logical grid), converted to Qt point sizes at the screen's logical dpi. Stateless; GUI thread.
QFont systemFont(double size, QFont::Weight weight = QFont::Normal);
QFont monospaceFont(double size);

// Text colours by role: the primary text colour, and weaker levels of it.
QColor primary(const QPalette& palette);
QColor secondary(const QPalette& palette);
QColor tertiary(const QPalette& palette);

}  // namespace kestravine::style
