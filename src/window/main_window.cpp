#include "window/main_window.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QScreen>
#include <QVBoxLayout>

#include "platform/platform.h"
#include "ui/content_view.h"
#include "window/window_placement.h"

namespace kestravine {

MainWindow::MainWindow()
    : QWidget(nullptr, Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint |
                           Qt::CustomizeWindowHint),
      content_(new ContentView(this)) {
  setWindowTitle(QStringLiteral("Kestravine"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(content_);
  setFixedSize(content_->size());
  // The flow may end by itself (the page opened while the service start still runs): the
  // window goes as on a close, and the launcher ends once that command has ended.
  connect(content_, &ContentView::flowClosed, this, [this] {
    if (!closed_) close();
  });
}

void MainWindow::present() {
  const auto screens = QGuiApplication::screens();
  QScreen* screen = window_placement::chooseScreen({screens.begin(), screens.end()},
                                                   QGuiApplication::primaryScreen());
  if (screen != nullptr) {
    // Positions the content area; the window manager puts the title bar above it.
    setGeometry(
        QRect(window_placement::contentOrigin(screen->availableGeometry(), size()), size()));
  }
  show();
  raise();
  activateWindow();
}

bool MainWindow::comeForward(const QString& activationToken) {
  if (closed_) return false;
  // Qt's Wayland plugin activates with this token, once, when asked to activate a window.
  if (!activationToken.isEmpty()) qputenv("XDG_ACTIVATION_TOKEN", activationToken.toUtf8());
  showNormal();
  raise();
  activateWindow();
  // Used or not (X11 has no use for it), it must not reach the commands started later.
  qunsetenv("XDG_ACTIVATION_TOKEN");
  return true;
}

void MainWindow::closeEvent(QCloseEvent* event) {
  event->accept();
  closeWithoutDisplay();
}

void MainWindow::closeWithoutDisplay() {
  if (closed_) return;
  closed_ = true;
  content_->closeFlow([] { platform().quit(); });
}

}  // namespace kestravine
