// Developer tool: draws the window icon's SVG at the sizes given, as Qt's SVG icon engine draws
// it for a window at a device pixel ratio of 1, and writes each as raw premultiplied ARGB32
// (<out-dir>/kestravine-launcher-<size>.argb), kept in resources/window-icon/ for
// src/window/window_icon.cpp. Raw rather than PNG: the
// bytes go back into an image unchanged, with no conversion and no image reader at start-up.
//
//   window_icon_pixels <svg> <out-dir> <size>...
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QIcon>
#include <QImage>
#include <QPixmap>
#include <cstdio>

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fputs("usage: window_icon_pixels <svg> <out-dir> <size>...\n", stderr);
    return 2;
  }
  // Drawn without a display, whatever the build's environment asks for.
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QGuiApplication app(argc, argv);
  const QIcon icon(QString::fromLocal8Bit(argv[1]));
  const QString outDir = QString::fromLocal8Bit(argv[2]);
  if (icon.isNull() || !QDir().mkpath(outDir)) {
    std::fprintf(stderr,
                 "window_icon_pixels: cannot draw %s (is the Qt SVG icon plugin installed?)\n",
                 argv[1]);
    return 1;
  }
  for (int i = 3; i < argc; ++i) {
    const int size = QString::fromLocal8Bit(argv[i]).toInt();
    const QImage image = icon.pixmap(QSize(size, size), 1.0).toImage();
    if (size <= 0 || image.size() != QSize(size, size) ||
        image.format() != QImage::Format_ARGB32_Premultiplied) {
      std::fprintf(stderr, "window_icon_pixels: no %d px image of %s\n", size, argv[1]);
      return 1;
    }
    QFile out(QStringLiteral("%1/kestravine-launcher-%2.argb").arg(outDir).arg(size));
    const auto bytes = reinterpret_cast<const char*>(image.constBits());
    if (!out.open(QIODevice::WriteOnly) ||
        out.write(bytes, image.sizeInBytes()) != image.sizeInBytes()) {
      std::fprintf(stderr, "window_icon_pixels: cannot write %s\n", qPrintable(out.fileName()));
      return 1;
    }
  }
  return 0;
}
