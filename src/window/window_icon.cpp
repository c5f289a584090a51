#include "window/window_icon.h"

#include <QGuiApplication>
#include <QImage>
#include <QPixmap>
#include <QResource>
#include <array>
#include <cstring>

namespace kestravine {

namespace {

// The sizes Qt's X11 window puts in _NET_WM_ICON for an icon that names no sizes of its own, in
// its order; window_icon_pixels draws the same ones.
constexpr std::array<int, 4> kSizes{16, 32, 64, 128};

// One size, as drawn at build time: premultiplied ARGB32, the format the SVG renderer draws in.
QPixmap drawn(int size) {
  const QResource resource(QStringLiteral(":/icons/kestravine-launcher-%1.argb").arg(size));
  const QByteArray bytes = resource.uncompressedData();
  QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
  if (!resource.isValid() || bytes.size() != image.sizeInBytes()) return {};
  std::memcpy(image.bits(), bytes.constData(), static_cast<std::size_t>(bytes.size()));
  return QPixmap::fromImage(image);
}

// Made only when needed: a QIcon of an SVG file loads the SVG icon plugin at once.
QIcon svg() {
  return QIcon(QStringLiteral(":/icons/kestravine-launcher.svg"));
}

}  // namespace

QIcon windowIcon() {
  if (QGuiApplication::platformName() != QLatin1String("xcb") || qApp->devicePixelRatio() != 1.0) {
    return svg();
  }
  QIcon icon;
  for (const int size : kSizes) {
    const QPixmap pixmap = drawn(size);
    if (pixmap.isNull()) return svg();
    icon.addPixmap(pixmap);
  }
  return icon;
}

}  // namespace kestravine
