// Renders the window content to a PNG for the documentation, in states snapshot mode cannot
// show: before the first check (--before-check), in a dark palette (--dark), and with the
// failure details expanded (--expand-details). Without --before-check the content appears and
// runs its flow as in the launcher (KESTRAVINE_* variables apply) and is rendered 4 s later.
//
//   render_view <png> [--before-check] [--dark] [--expand-details]
#include <QAbstractButton>
#include <QApplication>
#include <QPalette>
#include <QTimer>
#include <set>
#include <string>

#include "event_loop/qt_platform.h"
#include "ui/content_view.h"
#include "ui/disclosure_button.h"
#include "window/snapshot.h"

namespace {

QPalette darkPalette() {
  QPalette p;
  const QColor window(0x2b, 0x2b, 0x2e);
  const QColor text(0xe8, 0xe8, 0xea);
  p.setColor(QPalette::Window, window);
  p.setColor(QPalette::WindowText, text);
  p.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x20));
  p.setColor(QPalette::Text, text);
  p.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3e));
  p.setColor(QPalette::ButtonText, text);
  p.setColor(QPalette::Highlight, QColor(0x3d, 0x8b, 0xfd));
  p.setColor(QPalette::HighlightedText, Qt::white);
  return p;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc < 2) return 64;
  const QString out = QString::fromLocal8Bit(argv[1]);
  std::set<std::string> options(argv + 2, argv + argc);
  auto* platform = new kestravine::QtPlatform;
  kestravine::installPlatform(*platform);
  if (options.count("--dark")) QApplication::setPalette(darkPalette());

  kestravine::ContentView view;
  if (options.count("--before-check")) return kestravine::snapshot::write(&view, out) ? 0 : 1;
  view.show();
  QTimer::singleShot(4000, [&] {
    if (options.count("--expand-details")) {
      for (auto* toggle : view.findChildren<kestravine::DisclosureButton*>()) toggle->click();
    }
    QTimer::singleShot(300, [&] {
      kestravine::snapshot::write(&view, out);
      QApplication::quit();
    });
  });
  return QApplication::exec();
}
