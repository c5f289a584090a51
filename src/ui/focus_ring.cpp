#include "ui/focus_ring.h"

#include <QStyleOption>

namespace kestravine::focus_ring {

namespace {

constexpr double kWidth = 2;
constexpr double kRadius = 4;

class ButtonStyle final : public QProxyStyle {
 public:
  void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                   const QWidget* widget) const override {
    QProxyStyle::drawControl(element, option, painter, widget);
    if (element == CE_PushButton && (option->state & State_HasFocus)) {
      paint(*painter, option->rect, option->palette);
    }
  }
};

}  // namespace

void paint(QPainter& painter, const QRect& rect, const QPalette& palette) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  QColor colour = palette.color(QPalette::Highlight);
  colour.setAlphaF(0.8f);
  painter.setPen(QPen(colour, kWidth));
  painter.setBrush(Qt::NoBrush);
  const double inset = kWidth / 2;
  painter.drawRoundedRect(QRectF(rect).adjusted(inset, inset, -inset, -inset), kRadius, kRadius);
  painter.restore();
}

QStyle* buttonStyle() {
  static QStyle* style = new ButtonStyle;  // never destroyed: buttons may outlive any owner
  return style;
}

}  // namespace kestravine::focus_ring
