#include "ui/style.h"

#include <fontconfig/fontconfig.h>

#include <QFontDatabase>
#include <QGuiApplication>
#include <QResource>
#include <QScreen>
#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "system/system_calls.h"
#include "system/unique_fd.h"

namespace kestravine::style {

namespace {

const QString kChineseFamily = QStringLiteral("Noto Sans CJK SC");
// The same faces cut down to the fixed texts' characters, where the launcher carries them.
const QString kTextsFamily = QStringLiteral("Kestravine Texts");

double pointsFor(double logicalPixels) {
  const QScreen* screen = QGuiApplication::primaryScreen();
  const double dpi = screen != nullptr ? screen->logicalDotsPerInchY() : 96.0;
  return logicalPixels * 72.0 / dpi;
}

constexpr double kMinimumContrast = 4.5;
constexpr double kSecondaryAlpha = 0.6;
constexpr double kTertiaryAlpha = 0.4;

double luminance(const QColor& colour) {
  auto linear = [](float channel) {
    return channel <= 0.04045 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
         0.0722 * linear(colour.blueF());
}

}  // namespace

QFont systemFont(double size, QFont::Weight weight) {
  QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
  // Named, not looked up: asking the font database what it has would cost the start-up the
  // scan of every installed font. A missing family simply falls through to the next.
  font.setFamilies({kTextsFamily, kChineseFamily, font.family()});
  font.setPointSizeF(pointsFor(size));
  font.setWeight(weight);
  return font;
}

void loadTextFaces() {
  // Through fontconfig rather than QFontDatabase::addApplicationFont(), which would fill the
  // whole font database on the GUI thread on the way to the window. fontconfig takes files: the
  // faces are copied out of the binary into memory files, kept open for the launcher's life.
  for (const char* face : {":/fonts/texts-regular.otf", ":/fonts/texts-bold.otf"}) {
    const QResource resource(QString::fromLatin1(face));
    if (!resource.isValid()) continue;
    const QByteArray bytes = resource.uncompressedData();
    UniqueFd file = system_calls::makeMemoryFile("kestravine-texts");
    if (!file || !system_calls::writeAll(
                     file.get(), {bytes.constData(), static_cast<std::size_t>(bytes.size())}))
      continue;
    const std::string path = "/proc/self/fd/" + std::to_string(file.release());
    FcConfigAppFontAddFile(nullptr, reinterpret_cast<const FcChar8*>(path.c_str()));
  }
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
  return readable(primary(palette), kSecondaryAlpha, palette.color(QPalette::Window));
}
QColor tertiary(const QPalette& palette) {
  return readable(primary(palette), kTertiaryAlpha, palette.color(QPalette::Window));
}

QColor blend(const QColor& top, double alpha, const QColor& bottom) {
  auto mix = [alpha](float a, float b) { return static_cast<float>(a * alpha + b * (1 - alpha)); };
  return QColor::fromRgbF(mix(top.redF(), bottom.redF()), mix(top.greenF(), bottom.greenF()),
                          mix(top.blueF(), bottom.blueF()));
}

QColor readable(const QColor& text, double alpha, const QColor& background) {
  QColor colour = blend(text, alpha, background);
  while (alpha < 1 && contrast(colour, background) < kMinimumContrast) {
    alpha = std::min(1.0, alpha + 0.01);
    colour = blend(text, alpha, background);
  }
  return colour;
}

double contrast(const QColor& a, const QColor& b) {
  const double la = luminance(a);
  const double lb = luminance(b);
  return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

QPainterPath continuousRoundedRect(const QRectF& rect, double radius) {
  // One corner as offsets (u back along the edge that arrives, v along the edge that leaves),
  // in units of the radius: a straight edge's end, then three cubic curves.
  constexpr double kSpan = 1.52866483;
  constexpr std::array<std::array<double, 2>, 9> kCurve{{{1.08849323, 0},
                                                         {0.86840689, 0},
                                                         {0.63149399, 0.07491100},
                                                         {0.37282640, 0.16905899},
                                                         {0.16905899, 0.37282640},
                                                         {0.07491100, 0.63149399},
                                                         {0, 0.86840689},
                                                         {0, 1.08849323},
                                                         {0, kSpan}}};
  const double r = std::min(radius, std::min(rect.width(), rect.height()) / (2 * kSpan));
  struct Corner {
    QPointF at;
    QPointF arriving;  // direction of travel along the edge before the corner
    QPointF leaving;   // and after it
  };
  const Corner corners[] = {{rect.topRight(), {1, 0}, {0, 1}},
                            {rect.bottomRight(), {0, 1}, {-1, 0}},
                            {rect.bottomLeft(), {-1, 0}, {0, -1}},
                            {rect.topLeft(), {0, -1}, {1, 0}}};
  auto point = [r](const Corner& c, double u, double v) {
    return c.at - c.arriving * (u * r) + c.leaving * (v * r);
  };
  QPainterPath path;
  path.moveTo(point(corners[3], 0, kSpan));
  for (const Corner& c : corners) {
    path.lineTo(point(c, kSpan, 0));
    for (std::size_t i = 0; i < kCurve.size(); i += 3) {
      path.cubicTo(point(c, kCurve[i][0], kCurve[i][1]),
                   point(c, kCurve[i + 1][0], kCurve[i + 1][1]),
                   point(c, kCurve[i + 2][0], kCurve[i + 2][1]));
    }
  }
  path.closeSubpath();
  return path;
}

}  // namespace kestravine::style
