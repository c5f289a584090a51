// The launcher's entry: one window, its content following the install flow, and optionally the
// snapshot mode. Returns 0 when the window closes, the launcher opened the application, or a
// snapshot was taken.
#include <QApplication>

#include "app/main_window.h"
#include "app/snapshot.h"
#include "platform/qt_platform.h"
#include "ui/content_view.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Kestravine"));
  QApplication::setDesktopFileName(QStringLiteral("kestravine-launcher"));
  // Never destroyed: output readers still running when the application ends may yet post.
  auto* platform = new kestravine::QtPlatform;
  kestravine::installPlatform(*platform);

  kestravine::MainWindow window;
  window.present();
  kestravine::snapshot::arm(window.content(), qEnvironmentVariable("KESTRAVINE_LAUNCHER_SHOT"));
  return QApplication::exec();
}
