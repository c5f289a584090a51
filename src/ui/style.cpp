#include "ui/style.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QScreen>

namespace kestravine::style {

namespace {

double pointsFor(double logicalPixels) {
  const QScreen* screen = QGuiApplication::primaryScreen();
  const double dpi = screen != nullptr ? screen->logicalDotsPerInchY() : 96.0;
  return logicalPixels * 72.0 / dpi;
}

QColor withAlpha(QColor colour, double alpha) {
  colour.setAlphaF(static_cast<float>(alpha));
  return colour;
}

}  // namespace

QFont systemFont(double size, QFont::Weight weight) {
  QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
  font.setPointSizeF(pointsFor(size));
  font.setWeight(weight);
  return font;
}

QFont monospaceFont(double size) {
  QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  font.setPointSizeF(pointsFor(size));
  return font;
}

QColor primary(const QPalette& palette) {
  return palette.color(QPalette::WindowText);
}
QColor secondary(const QPalette& palette) {
  return withAlpha(primary(palette), 0.6);
}
QColor tertiary(const QPalette& palette) {
  return withAlpha(primary(palette), 0.4);
}

}  // namespace kestravine::style
