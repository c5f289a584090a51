#include "ui/disclosure_button.h"

#include <QPainter>
#include <QPainterPath>
#include <QStyle>

#include "ui/accessibility.h"
#include "ui/focus_ring.h"
#include "ui/return_key.h"
#include "ui/style.h"

namespace kestravine {

namespace {

constexpr int kTriangle = 8;  // side of the triangle's box
constexpr int kSpacing = 5;   // between triangle and label
constexpr int kPadding = 3;   // around both, room for the focus ring

}  // namespace

DisclosureButton::DisclosureButton(const QString& text, QWidget* parent) : QAbstractButton(parent) {
  setText(text);
  setFocusPolicy(Qt::TabFocus);
  setCursor(Qt::PointingHandCursor);
  return_key::pressesButton(this);
  connect(this, &QAbstractButton::clicked, this, [this] {
    expanded_ = !expanded_;
    accessibility::expandedChanged(this);
    update();
    emit expandedChanged(expanded_);
  });
}

QSize DisclosureButton::sizeHint() const {
  const QFontMetrics metrics(font());
  return {2 * kPadding + kTriangle + kSpacing + metrics.horizontalAdvance(text()),
          2 * kPadding + std::max(kTriangle, metrics.height())};
}

void DisclosureButton::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QColor colour = style::primary(palette());
  const QRectF box(kPadding, (height() - kTriangle) / 2.0, kTriangle, kTriangle);
  QPainterPath triangle;
  if (expanded_) {  // expanded: pointing down
    triangle.moveTo(box.left(), box.top() + 1.5);
    triangle.lineTo(box.right(), box.top() + 1.5);
    triangle.lineTo(box.center().x(), box.bottom() - 0.5);
  } else {  // collapsed: pointing right
    triangle.moveTo(box.left() + 1.5, box.top());
    triangle.lineTo(box.right() - 0.5, box.center().y());
    triangle.lineTo(box.left() + 1.5, box.bottom());
  }
  triangle.closeSubpath();
  painter.fillPath(triangle, isDown() ? style::secondary(palette()) : colour);
  painter.setPen(colour);
  const QRect label(kPadding + kTriangle + kSpacing, 0, width(), height());
  painter.drawText(label, Qt::AlignLeft | Qt::AlignVCenter, text());
  if (hasFocus()) focus_ring::paint(painter, rect(), palette());
}

}  // namespace kestravine
