// The launcher's entry: one window, its content following the install flow, and optionally the
// snapshot mode. Returns 0 when the window closes (once a running command has ended), the
// launcher opened the application, or a snapshot was taken; 1 when there is no display.
#include <fontconfig/fontconfig.h>
#include <QApplication>
#include <QIcon>
#include <cstdio>
#include <string_view>
#include <thread>

#include "app/main_window.h"
#include "app/snapshot.h"
#include "app/termination_signals.h"
#include "platform/qt_platform.h"
#include "ui/content_view.h"

namespace {

// Qt aborts with a core dump when it finds no display; say so plainly instead.
bool hasDisplay(int argc, char** argv) {
  for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
    if (!qEnvironmentVariableIsEmpty(name)) return true;
  }
  for (int i = 1; i < argc; ++i) {
    if (std::string_view(argv[i]) == "-platform") return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (!hasDisplay(argc, argv)) {
    std::fputs(
        "kestravine-launcher：找不到可以显示窗口的桌面（DISPLAY、WAYLAND_DISPLAY 和 "
        "QT_QPA_PLATFORM 都没有设置）。\n",
        stderr);
    return 1;
  }
  // Qt reads the font configuration the first time it needs a font, which for this window is
  // before it can be shown; reading it here, while the application connects to the display,
  // takes that off the way to the window. fontconfig's initialisation is thread-safe.
  std::thread(FcInit).detach();
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Kestravine"));
  QApplication::setDesktopFileName(QStringLiteral("kestravine-launcher"));
  // From the binary, not the icon theme: looking the theme up costs the start-up several ms.
  QApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/kestravine-launcher.svg")));
  // The window's close decides when the launcher ends: after a running command, not at once.
  QApplication::setQuitOnLastWindowClosed(false);
  // Never destroyed: output readers still running when the application ends may yet post.
  auto* platform = new kestravine::QtPlatform;
  kestravine::installPlatform(*platform);

  kestravine::MainWindow window;
  kestravine::TerminationSignals termination([&window] { window.close(); });
  window.present();
  kestravine::snapshot::arm(window.content(), qEnvironmentVariable("KESTRAVINE_LAUNCHER_SHOT"));
  return QApplication::exec();
}
