#include "startup/toolkit_thread.h"

#include <QString>
#include <QThreadPool>
#include <QtGlobal>
#include <utility>

namespace kestravine {

namespace {

QtMessageHandler before = nullptr;
bool refused = false;

// Qt does not tell the pool's caller that a thread could not be created; it only says so, on
// the calling thread, while the thread is being started.
void spotRefusal(QtMsgType type, const QMessageLogContext& context, const QString& message) {
  if (message.startsWith(QLatin1String("QThread::start: "))) {  // a critical message
    refused = true;
    return;
  }
  before(type, context, message);
}

}  // namespace

bool keepToolkitThread(std::function<void()> firstTask) {
  QThreadPool* pool = QThreadPool::globalInstance();
  pool->setExpiryTimeout(-1);  // an idle thread waits for work instead of ending
  pool->setMaxThreadCount(1);
  before = qInstallMessageHandler(spotRefusal);
  pool->start(std::move(firstTask));
  qInstallMessageHandler(before);
  return !refused;
}

}  // namespace kestravine
