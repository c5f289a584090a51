#include "event_loop/qt_platform.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QTimer>
#include <QUrl>
#include <system_error>
#include <utility>

#include "platform/opener.h"
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

void QtPlatform::openUrl(const std::string& url, std::function<void(bool)> done) {
  auto answer = [this, done](bool opened) { post([done, opened] { done(opened); }); };
  QUrl parsed(QString::fromStdString(url), QUrl::StrictMode);
  if (!parsed.isValid()) return answer(false);
  // xdg-open says through its exit status whether the desktop could open the page; Qt's own way
  // only says whether it could ask, and is taken only where there is no xdg-open.
  bool found = false;
  auto opener = Opener::start(parsed.toString().toStdString(), found);
  if (!found) return answer(QDesktopServices::openUrl(parsed));
  if (!opener) return answer(false);
  // Polled: an opener is short-lived, and a thread may be refused where the opener was not.
  auto* timer = new QTimer(this);
  connect(timer, &QTimer::timeout, this,
          [timer, opener = *opener, done = std::move(done)]() mutable {
            if (done) {
              const std::optional<bool> opened = opener.result();
              if (!opened) return;
              std::exchange(done, nullptr)(*opened);
              timer->setInterval(1000);  // only to reap it once it ends
            }
            if (opener.reap()) timer->deleteLater();
          });
  timer->start(50);
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
