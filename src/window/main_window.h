#pragma once

#include <QWidget>

namespace kestravine {

class ContentView;

// The launcher's one window: titled "Kestravine", closable, neither resizable nor
// minimisable, 440 by 320 of content, centred on the primary display's available area.
// Closing it hides it at once; the application ends as soon as the running service start or
// install (if any) has exited and no SIGKILL of a cancel is still due. Nothing is stopped.
//
// Threading: GUI thread only.
class MainWindow final : public QWidget {
  Q_OBJECT

 public:
  MainWindow();

  ContentView* content() const { return content_; }
  // Centres the window and brings it to the front.
  void present();
  // Another launch of the same product home: brings the window to the front, passing the
  // activation token that launch's desktop gave it (needed on Wayland), unless the window was
  // closed. Returns false then: the launcher is finishing a command without its window.
  bool comeForward(const QString& activationToken);
  // The display has gone: the flow closes as on a close of the window (if it has not already),
  // without touching the window itself.
  void closeWithoutDisplay();

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  ContentView* content_;
  bool closed_ = false;
};

}  // namespace kestravine
