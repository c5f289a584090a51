// The floors for the start-up benchmark: a Qt Widgets window of the launcher's size, shown and
// nothing else ("startup-bare"), and the same window holding one label of text in the launcher's
// font, which is what any text costs the start-up: the font configuration and a face loaded
// ("startup-label"). The label is the launcher's headline in Noto Sans CJK SC at its body size,
// chosen as the launcher chooses it, so the floor loads the same face and shapes Chinese too.
//
//   bare_window [--label]
#include <QApplication>
#include <QFontDatabase>
#include <QLabel>
#include <QScreen>
#include <QVBoxLayout>
#include <QWidget>
#include <string_view>

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  const bool label = argc > 1 && std::string_view(argv[1]) == "--label";
  QWidget window;
  window.setWindowTitle(label ? QStringLiteral("startup-label") : QStringLiteral("startup-bare"));
  window.setFixedSize(440, 320);
  if (label) {
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    font.setFamilies({QStringLiteral("Noto Sans CJK SC"), font.family()});
    // 13 logical pixels, in points at the screen's logical dpi, as the launcher's body text.
    const QScreen* screen = QGuiApplication::primaryScreen();
    font.setPointSizeF(13 * 72.0 / (screen != nullptr ? screen->logicalDotsPerInchY() : 96.0));
    auto* text = new QLabel(QStringLiteral("Kestravine会装在这台电脑上"));
    text->setFont(font);
    (new QVBoxLayout(&window))->addWidget(text);
  }
  window.show();
  return QApplication::exec();
}
