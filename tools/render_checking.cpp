// Renders the window content as it is before its first check, to a PNG for the documentation.
// Snapshot mode cannot show it: the check runs the moment the window appears.
#include <QApplication>

#include "app/snapshot.h"
#include "platform/qt_platform.h"
#include "ui/content_view.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc != 2) return 64;
  auto* platform = new kestravine::QtPlatform;
  kestravine::installPlatform(*platform);
  kestravine::ContentView view;
  return kestravine::snapshot::write(&view, QString::fromLocal8Bit(argv[1])) ? 0 : 1;
}
