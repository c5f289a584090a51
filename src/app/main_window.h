#pragma once

#include <QWidget>

namespace kestravine {

class ContentView;

// The launcher's one window: titled "Kestravine", closable, neither resizable nor
// minimisable, 440 by 320 of content, centred on the primary display's available area.
// Closing it ends the application (the last window closed); running commands are left alone.
//
// Threading: GUI thread only.
class MainWindow final : public QWidget {
  Q_OBJECT

 public:
  MainWindow();

  ContentView* content() const { return content_; }
  // Centres the window and brings it to the front.
  void present();

 private:
  ContentView* content_;
};

}  // namespace kestravine
