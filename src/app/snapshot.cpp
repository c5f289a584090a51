#include "app/snapshot.h"

#include <QCoreApplication>
#include <QImageWriter>
#include <QPixmap>
#include <QPointer>
#include <QTimer>
#include <QWidget>

namespace kestravine::snapshot {

namespace {
constexpr int kDelayMilliseconds = 4000;
}

bool write(QWidget* content, const QString& path) {
  if (content == nullptr) return false;
  const QImage image = content->grab().toImage();
  if (image.isNull()) return false;
  QImageWriter writer(path, "png");
  return writer.write(image);
}

void arm(QWidget* content, const QString& path) {
  if (path.isEmpty()) return;
  QTimer::singleShot(kDelayMilliseconds, Qt::PreciseTimer, [content = QPointer(content), path] {
    write(content, path);
    QCoreApplication::quit();
  });
}

}  // namespace kestravine::snapshot
