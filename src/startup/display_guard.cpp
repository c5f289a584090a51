#include "startup/display_guard.h"

#include <functional>

#include <fcntl.h>
#include <unistd.h>

#include <QGuiApplication>
#include <QString>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "system/system_calls.h"
#include "system/unique_fd.h"

namespace kestravine {

namespace {

struct Attempt {
  std::string plugin;
  bool found;  // false: Qt has no plugin of that name
};

struct Guarded {
  QtMessageHandler previous = nullptr;
  UniqueFd stderrCopy;  // the real stderr, while fd 2 is the holding file
  UniqueFd held;
  std::vector<Attempt> attempts;
  std::string forcedPlugin;
  std::function<void()> beforeExit;
};

Guarded* guarded = nullptr;

// Values from the environment go into the line as they are, except that nothing may break it.
std::string oneLine(std::string_view value) {
  std::string out(value);
  for (char& c : out) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
  }
  return out;
}

std::string described(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return std::string(name) + " 未设置";
  return std::string(name) + "=" + oneLine(value);
}

// Qt reports each display plugin it gave up on under qt.qpa.plugin, the name in quotes:
// 'Could not find the Qt platform plugin "x" in ""' when it has no such plugin,
// 'Could not load the Qt platform plugin "x" ... even though it was found.' when it failed.
void noteAttempt(const QString& message) {
  const QString marker = QStringLiteral("platform plugin \"");
  const qsizetype start = message.indexOf(marker);
  if (start < 0) return;
  const qsizetype nameStart = start + marker.size();
  const qsizetype nameEnd = message.indexOf(QLatin1Char('"'), nameStart);
  if (nameEnd < 0) return;
  guarded->attempts.push_back({message.mid(nameStart, nameEnd - nameStart).toStdString(),
                               !message.startsWith(QStringLiteral("Could not find"))});
}

[[noreturn]] void giveUp() {
  std::string tried;
  for (const Attempt& attempt : guarded->attempts) {
    tried += tried.empty() ? "试过 Qt 平台 " : "，";
    tried += oneLine(attempt.plugin) + (attempt.found ? "：启动失败" : "：没有这个平台");
  }
  if (tried.empty()) {
    // Failed after a plugin was chosen, or Qt's messages were filtered away.
    std::string plugin = guarded->forcedPlugin;
    if (qGuiApp != nullptr) plugin = QGuiApplication::platformName().toStdString();
    if (!plugin.empty()) tried = "试过 Qt 平台 " + oneLine(plugin);
  }
  if (!tried.empty()) tried += "；";
  const std::string line = "kestravine-launcher：连不上可以显示窗口的桌面（" + tried +
                           described("DISPLAY") + "，" + described("WAYLAND_DISPLAY") + "）。\n";
  system_calls::writeAll(guarded->stderrCopy ? guarded->stderrCopy.get() : STDERR_FILENO, line);
  if (guarded->beforeExit) guarded->beforeExit();
  // Not abort(): a missing desktop is no crash, and leaves no core behind.
  std::_Exit(1);
}

void onMessage(QtMsgType type, const QMessageLogContext& context, const QString& message) {
  if (type == QtFatalMsg) giveUp();
  if (context.category != nullptr && std::string_view(context.category) == "qt.qpa.plugin") {
    noteAttempt(message);
  }
  guarded->previous(type, context, message);
}

}  // namespace

DisplayGuard::DisplayGuard(std::string forcedPlugin, std::function<void()> beforeExit) {
  guarded = new Guarded;
  guarded->forcedPlugin = std::move(forcedPlugin);
  guarded->beforeExit = std::move(beforeExit);
  // A file rather than a pipe: nothing written during start-up can block on a full buffer.
  guarded->held = system_calls::makeMemoryFile("kestravine-held-stderr");
  if (guarded->held) {
    guarded->stderrCopy.reset(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3));
    std::fflush(stderr);
    if (!guarded->stderrCopy || dup2(guarded->held.get(), STDERR_FILENO) < 0) {
      guarded->stderrCopy.reset();
      guarded->held.reset();
    }
  }
  guarded->previous = qInstallMessageHandler(onMessage);
}

DisplayGuard::~DisplayGuard() {
  qInstallMessageHandler(guarded->previous);
  if (guarded->held) {
    std::fflush(stderr);
    dup2(guarded->stderrCopy.get(), STDERR_FILENO);
    char buffer[4096];
    off_t offset = 0;
    ssize_t n;
    while ((n = pread(guarded->held.get(), buffer, sizeof buffer, offset)) > 0) {
      system_calls::writeAll(STDERR_FILENO, std::string_view(buffer, static_cast<size_t>(n)));
      offset += n;
    }
  }
  delete guarded;
  guarded = nullptr;
}

}  // namespace kestravine
