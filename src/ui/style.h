#pragma once

#include <QColor>
#include <QFont>
#include <QPainterPath>
#include <QPalette>
#include <QRectF>

namespace kestravine::style {

// Sizes are logical pixels (the launcher's lengths and font sizes are in points of a 72-dpi
// logical grid), converted to Qt point sizes at the screen's logical dpi. Stateless; GUI thread.

// The text font: Noto Sans CJK SC where installed (the face most Linux desktops use for
// Chinese), else the desktop's own. A weight the family lacks is matched to the nearest it has.
QFont systemFont(double size, QFont::Weight weight = QFont::Normal);
QFont monospaceFont(double size);

// Text colours by role: the primary text colour, and weaker levels of it.
QColor primary(const QPalette& palette);
QColor secondary(const QPalette& palette);
QColor tertiary(const QPalette& palette);

// A rounded rectangle whose corners run into the straight edges along a continuous,
// superelliptic curve rather than a circular arc: each corner spans about 1.53 times `radius`.
QPainterPath continuousRoundedRect(const QRectF& rect, double radius);

}  // namespace kestravine::style
