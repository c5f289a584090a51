#pragma once

#include <QColor>
#include <QFont>
#include <QPainterPath>
#include <QPalette>
#include <QRectF>

namespace kestravine::style {

// Sizes are logical pixels (the launcher's lengths and font sizes are in points of a 72-dpi
// logical grid), converted to Qt point sizes at the screen's logical dpi. Stateless; GUI thread.

// The text font: the launcher's own cut of Noto Sans CJK SC for its fixed texts where it carries
// one (see loadTextFaces()), then Noto Sans CJK SC where installed (the face most Linux desktops
// use for Chinese), else the desktop's own. A weight the family lacks is matched to the nearest it
// has.
QFont systemFont(double size, QFont::Weight weight = QFont::Normal);
// Hands the faces of the fixed texts that the launcher carries, if it carries them, to
// fontconfig, from which Qt's font database takes them when it first fills. Any thread, once,
// before the first text is laid out; it may run beside the application's construction.
void loadTextFaces();
QFont monospaceFont(double size);

// Text colours by role, on the window's background: the primary text colour, and weaker levels
// of it, opaque. A weaker level never drops below a contrast of 4.5:1 (WCAG AA for small text):
// where the theme's colours leave too little room, it is made stronger.
QColor primary(const QPalette& palette);
QColor secondary(const QPalette& palette);
QColor tertiary(const QPalette& palette);

// `top` laid over `bottom` at `alpha`, as compositing would; opaque.
QColor blend(const QColor& top, double alpha, const QColor& bottom);
// `text` laid over `background` at `alpha`, as compositing would; the alpha is raised as far as
// needed for 4.5:1 against the background, up to opaque.
QColor readable(const QColor& text, double alpha, const QColor& background);
// The contrast ratio of two opaque colours, from 1 to 21, as WCAG defines it.
double contrast(const QColor& a, const QColor& b);

// A rounded rectangle whose corners run into the straight edges along a continuous,
// superelliptic curve rather than a circular arc: each corner spans about 1.53 times `radius`.
QPainterPath continuousRoundedRect(const QRectF& rect, double radius);

}  // namespace kestravine::style
