#pragma once

#include <QPainter>
#include <QPalette>
#include <QProxyStyle>
#include <QRect>

namespace kestravine::focus_ring {

// The keyboard focus mark of the launcher's controls: a ring in the highlight colour, clearly
// visible however the desktop's style draws (or does not draw) focus. GUI thread only.

// Draws the ring just inside `rect`.
void paint(QPainter& painter, const QRect& rect, const QPalette& palette);

// A style for push buttons: the application's style, with the ring over a focused button.
// Shared by every button that uses it; lives for the process.
QStyle* buttonStyle();

}  // namespace kestravine::focus_ring
