#include "ui/style.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFontDatabase>
#include <QFontInfo>
#include <QImage>
#include <QPainter>

namespace kestravine::testing {
namespace {

// `text` in `font`, black on white, as the window draws a label.
QImage drawn(const QString& text, const QFont& font) {
  QImage image(420, 40, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::white);
  QPainter painter(&image);
  painter.setFont(font);
  painter.setPen(Qt::black);
  painter.drawText(image.rect(), Qt::AlignLeft | Qt::AlignVCenter, text);
  return image;
}

// The launcher's own cut of the faces draws every pixel of its texts as the installed faces do,
// in the title's weight and the body's: the saving of memory costs nothing on screen.
TEST(Style, TheLaunchersOwnFacesDrawAsTheInstalledOnes) {
  const QString dir = QStringLiteral(TEXT_FACES_DIR);
  if (!QFile::exists(dir + "/texts-regular.otf"))
    GTEST_SKIP() << "no faces were cut in this build (Noto Sans CJK SC or fontTools missing)";
  const QStringList texts{"这个安装包里有新版本的Varnholt",
                          "约 3—5 分钟，看网络。没更新完的话，现在的版本照样能用。",
                          "这台电脑上是 0.1.0，这个安装包里是 0.2.0。再试一次，详情"};
  struct Style {
    double size;
    QFont::Weight weight;
  };
  const Style styles[] = {{19, QFont::DemiBold}, {12.5, QFont::Normal}, {11, QFont::Normal}};
  std::vector<QImage> installed;
  for (const auto& style : styles)
    for (const QString& text : texts)
      installed.push_back(drawn(text, style::systemFont(style.size, style.weight)));
  for (const char* face : {"/texts-regular.otf", "/texts-bold.otf"})
    ASSERT_GE(QFontDatabase::addApplicationFont(dir + face), 0) << face;
  for (const auto& style : styles) {  // drawn with them now, not with the installed ones
    EXPECT_EQ(QFontInfo(style::systemFont(style.size, style.weight)).family(), "Kestravine Texts");
  }
  std::size_t i = 0;
  for (const auto& style : styles) {
    for (const QString& text : texts) {
      EXPECT_EQ(drawn(text, style::systemFont(style.size, style.weight)), installed[i++])
          << text.toStdString() << " at " << style.size;
    }
  }
}

}  // namespace
}  // namespace kestravine::testing
