#include "window/snapshot.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QPixmap>
#include <QPointer>
#include <QSaveFile>
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
  // Encoded in memory, then written beside the target and renamed over it: a full disk leaves
  // the old file whole, and a failed write never reaches the image encoder mid-file.
  QByteArray png;
  QBuffer buffer(&png);
  if (!buffer.open(QIODevice::WriteOnly) || !image.save(&buffer, "PNG")) return false;
  QSaveFile file(path);
  if (!file.open(QIODevice::WriteOnly) || file.write(png) != png.size()) {
    file.cancelWriting();
    return false;
  }
  return file.commit();
}

void arm(QWidget* content, const QString& path) {
  if (path.isEmpty()) return;
  QTimer::singleShot(kDelayMilliseconds, Qt::PreciseTimer, [content = QPointer(content), path] {
    write(content, path);
    QCoreApplication::quit();
  });
}

}  // namespace kestravine::snapshot
