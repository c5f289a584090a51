#include "app/snapshot.h"

#include <QCoreApplication>
#include <QImageWriter>
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
  // Written beside the target and renamed over it: a full disk leaves the old file whole.
  QSaveFile file(path);
  if (!file.open(QIODevice::WriteOnly)) return false;
  QImageWriter writer(&file, "png");
  if (!writer.write(image)) {
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
