// The floor for the start-up benchmark: a Qt Widgets window of the launcher's size, titled
// "startup-bare", shown and nothing else.
#include <QApplication>
#include <QWidget>

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QWidget window;
  window.setWindowTitle(QStringLiteral("startup-bare"));
  window.setFixedSize(440, 320);
  window.show();
  return QApplication::exec();
}
