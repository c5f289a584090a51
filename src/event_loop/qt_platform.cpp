#include "event_loop/qt_platform.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QProcess>
#include <QStandardPaths>
#include <QTimer>
#include <QUrl>
#include <system_error>

#include "system/system_calls.h"

namespace kestravine {

namespace {

// Long enough to run thousands of small tasks, short enough that input and painting between two
// drains keep the window responsive while a command floods its output.
constexpr auto kDrainBudget = std::chrono::milliseconds(8);

}  // namespace

QtPlatform::QtPlatform()
    : wake_([this](std::string_view) { drain(); }, this), queue_([this] { wake_.wake(); }) {}

void QtPlatform::drain() {
  if (queue_.drain(kDrainBudget)) {
    // Out of budget: let Qt handle input and painting first, then go on.
    QTimer::singleShot(0, this, [this] { drain(); });
  }
}

void QtPlatform::post(Task task) {
  queue_.push(std::move(task));
}

void QtPlatform::postAfter(Delay delay, Task task) {
  QTimer::singleShot(delay, Qt::PreciseTimer, this, std::move(task));
}

void QtPlatform::runInBackgroundAfter(Delay delay, Task task) {
  // Kept here until due, so that a loop without the display can still run it.
  const int id = nextBackground_++;
  background_.emplace(id, std::pair(std::chrono::steady_clock::now() + delay, std::move(task)));
  QTimer::singleShot(delay, Qt::PreciseTimer, this, [this, id] {
    auto due = background_.extract(id);
    if (due.empty()) return;
    Task task = std::move(due.mapped().second);
    try {
      system_calls::startThread(task);
    } catch (const std::system_error&) {
      task();  // no thread to be had: a SIGKILL follow-up is short enough to run here
    }
  });
}

bool QtPlatform::openUrl(const std::string& url) {
  QUrl parsed(QString::fromStdString(url), QUrl::StrictMode);
  if (!parsed.isValid()) return false;
  if (QDesktopServices::openUrl(parsed)) return true;
  // Qt runs the xdg-open it found as a command line split at blanks, which fails when its
  // directory's path holds one. Run it directly, with the address as one argument.
  const QString xdgOpen = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
  return !xdgOpen.isEmpty() && QProcess::startDetached(xdgOpen, {parsed.toString()});
}

void QtPlatform::quit() {
  quitAsked_ = true;
  QCoreApplication::quit();
}

void QtPlatform::runWithoutDisplayUntilQuit() {
  constexpr int kIdleMs = 100;
  for (;;) {
    const bool more = queue_.drain(kDrainBudget);
    if (quitAsked_) return;
    const auto now = std::chrono::steady_clock::now();
    for (auto it = background_.begin(); it != background_.end();) {
      if (it->second.first > now) {
        ++it;
        continue;
      }
      Task task = std::move(it->second.second);
      it = background_.erase(it);
      task();  // a SIGKILL follow-up: short, and no other thread is needed for it
    }
    wake_.waitWithoutEventLoop(more ? 0 : kIdleMs);
  }
}

}  // namespace kestravine
