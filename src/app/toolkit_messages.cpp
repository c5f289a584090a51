#include "app/toolkit_messages.h"

#include <QString>
#include <QtGlobal>

namespace kestravine {

namespace {

QtMessageHandler previous = nullptr;

void onMessage(QtMsgType type, const QMessageLogContext& context, const QString& message) {
  if (type == QtWarningMsg && message.startsWith(QLatin1String("QStandardPaths: "))) return;
  previous(type, context, message);
}

}  // namespace

void filterToolkitMessages() {
  previous = qInstallMessageHandler(onMessage);
}

}  // namespace kestravine
