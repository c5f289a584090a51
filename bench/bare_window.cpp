// The floors for the start-up benchmark: a Qt Widgets window of the launcher's size, shown and
// nothing else ("startup-bare"), and the same window holding one label of text, which is what
// any text costs the start-up: the font configuration and a face loaded ("startup-label").
//
//   bare_window [--label]
#include <QApplication>
#include <QLabel>
#include <QVBoxLayout>
#include <QWidget>
#include <string_view>

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  const bool label = argc > 1 && std::string_view(argv[1]) == "--label";
  QWidget window;
  window.setWindowTitle(label ? QStringLiteral("startup-label") : QStringLiteral("startup-bare"));
  window.setFixedSize(440, 320);
  if (label) (new QVBoxLayout(&window))->addWidget(new QLabel(QStringLiteral("Kestravine")));
  window.show();
  return QApplication::exec();
}
