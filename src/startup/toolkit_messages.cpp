#include "startup/toolkit_messages.h"

#include <unistd.h>

#include <QString>
#include <QtGlobal>
#include <atomic>
#include <thread>
#include <utility>

#include "platform/platform.h"

namespace kestravine {

namespace {

QtMessageHandler previous = nullptr;
std::function<void()> displayLost;
std::thread::id guiThread;
std::atomic<bool> posted{false};
bool takenOver = false;  // GUI thread only

// Qt's words for a display connection that broke, X11's and Wayland's.
bool saysTheDisplayIsGone(const QString& message) {
  return message.startsWith(QLatin1String("The X11 connection broke")) ||
         message.startsWith(QLatin1String("The Wayland connection broke")) ||
         message.startsWith(QLatin1String("The Wayland connection experienced a fatal error"));
}

// On the GUI thread: from here on the launcher runs without the toolkit's event loop.
void takeOver() {
  if (takenOver) return;  // the task carried here from another thread, run inside that loop
  takenOver = true;
  displayLost();
}

void onMessage(QtMsgType type, const QMessageLogContext& context, const QString& message) {
  if (type == QtWarningMsg && message.startsWith(QLatin1String("QStandardPaths: "))) return;
  if (type != QtWarningMsg || !saysTheDisplayIsGone(message))
    return previous(type, context, message);
  if (std::this_thread::get_id() == guiThread) return takeOver();
  // Another thread of the toolkit found it: the GUI thread takes over, and this one must never
  // return to the toolkit, which would end the process.
  if (!posted.exchange(true)) platform().post(takeOver);
  for (;;) ::pause();
}

}  // namespace

void filterToolkitMessages(std::function<void()> onDisplayLost) {
  displayLost = std::move(onDisplayLost);
  guiThread = std::this_thread::get_id();
  previous = qInstallMessageHandler(onMessage);
}

}  // namespace kestravine
