// The launcher's entry: one window, its content following the install flow, and optionally the
// snapshot mode. Returns 0 when the window closes (once a running command has ended), the
// launcher opened the application, a snapshot was taken, --help or --version answered, or a
// launcher already running for the same product home was asked to come forward; 1 when there is
// no desktop to show the window on, or that launcher does not answer.
#include <fontconfig/fontconfig.h>
#include <unistd.h>

#include <QApplication>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <optional>
#include <string>
#include <string_view>

#include "env/ctx.h"
#include "event_loop/qt_platform.h"
#include "event_loop/termination_signals.h"
#include "startup/command_line.h"
#include "startup/descriptor_limit.h"
#include "startup/display_guard.h"
#include "startup/single_instance.h"
#include "startup/toolkit_messages.h"
#include "startup/toolkit_thread.h"
#include "system/system_calls.h"
#include "terminal/run_in_terminal.h"
#include "ui/content_view.h"
#include "ui/style.h"
#include "window/elsewhere_notice.h"
#include "window/main_window.h"
#include "window/snapshot.h"
#include "window/window_icon.h"

namespace {

// The display plugin asked for on the command line (Qt takes "-platform" and "--platform") or
// else in QT_QPA_PLATFORM; empty when Qt is left to choose.
std::string forcedPlugin(int argc, char** argv) {
  for (int i = 1; i + 1 < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "-platform" || arg == "--platform") return argv[i + 1];
  }
  return qEnvironmentVariable("QT_QPA_PLATFORM").toStdString();
}

bool hasDisplay(const std::string& forced) {
  return !forced.empty() || !qEnvironmentVariableIsEmpty("DISPLAY") ||
         !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

}  // namespace

int main(int argc, char** argv) {
  kestravine::system_calls::setCloseOnExecFrom(3);
  // A terminal or pipe that has gone away must not end the launcher at its next word: a write
  // then fails with EPIPE instead. Its commands start with every signal at its default.
  ::signal(SIGPIPE, SIG_IGN);
  if (const std::optional<int> status = kestravine::answerCommandLine(argc, argv)) {
    return *status;
  }
  // Too few descriptors fail deep in the toolkit, as an unreachable desktop or a signal: the
  // true reason is said here, before any of it starts.
  if (const std::optional<long> limit = kestravine::descriptor_limit::ensure()) {
    std::fputs(kestravine::descriptor_limit::shortage(*limit, EMFILE).c_str(), stderr);
    return 1;
  }
  const std::string forced = forcedPlugin(argc, argv);
  const bool terminalAsked = std::any_of(
      argv + 1, argv + argc, [](const char* arg) { return arg == std::string_view("--terminal"); });
  if (terminalAsked || !hasDisplay(forced)) {
    // No desktop answers (a login over SSH, a server): the same flow in the terminal, or, for a
    // script that asked for the automatic start, as plain lines.
    const bool interactive = ::isatty(STDIN_FILENO) && ::isatty(STDOUT_FILENO);
    if (interactive || kestravine::Ctx::switchedOn("KESTRAVINE_LAUNCHER_AUTOSTART")) {
      const char* tty = interactive ? ::ttyname(STDIN_FILENO) : nullptr;
      kestravine::SingleInstance::setDesktop(std::string("TERMINAL=") + (tty ? tty : "none"));
      kestravine::SingleInstance instance(kestravine::Ctx::canonicalHome());
      if (instance.answer() != kestravine::SingleInstance::Answer::first) return instance.report();
      return kestravine::runInTerminal(instance, interactive);
    }
    std::fputs(terminalAsked
                   ? "kestravine-launcher：--terminal 要在终端里运行（标准输入和输出都是终端）；"
                     "脚本里请设 KESTRAVINE_LAUNCHER_AUTOSTART=1。\n"
                   : "kestravine-launcher：找不到可以显示窗口的桌面（DISPLAY、WAYLAND_DISPLAY 和 "
                     "QT_QPA_PLATFORM 都没有设置）。\n",
               stderr);
    return 1;
  }
  // One launcher per product home: a later one only brings the first one's window forward.
  kestravine::SingleInstance instance(kestravine::Ctx::canonicalHome());
  // A launch on another desktop gets a word on its own desktop, which needs the toolkit.
  const bool elsewhere = instance.answer() == kestravine::SingleInstance::Answer::elsewhere;
  if (instance.answer() != kestravine::SingleInstance::Answer::first && !elsewhere) {
    return instance.report();
  }
  // Qt reads the font configuration the first time it needs a font, which for this window is
  // before it can be shown; reading it on the toolkit's own thread, while the application
  // connects to the display, takes that off the way to the window (fontconfig's initialisation
  // is thread-safe). Where the system refuses that thread already, say so now rather than
  // freeze later.
  // The faces of the fixed texts go to fontconfig on the same thread; the window waits for them.
  std::promise<void> facesLoaded;
  std::future<void> faces = facesLoaded.get_future();
  if (!kestravine::keepToolkitThread([&facesLoaded] {
        FcInit();
        kestravine::style::loadTextFaces();
        facesLoaded.set_value();
      })) {
    // A refused thread has one reason that is not a programming error: no more processes.
    std::fputs(("kestravine-launcher：系统不让再开线程，窗口没法显示：" +
                kestravine::system_calls::describeError(EAGAIN) + "。关掉一些程序再试。\n")
                   .c_str(),
               stderr);
    return 1;
  }
  kestravine::MainWindow* shown = nullptr;
  kestravine::QtPlatform* qtPlatform = nullptr;
  kestravine::filterToolkitMessages([&shown, &qtPlatform, &instance] {
    // As after a close of the window: the running command finishes, its output read and dropped
    // (a cancel's SIGKILL follow-up included), then the launcher ends with 0.
    std::fputs("kestravine-launcher：桌面断开了，窗口已经没了；等正在运行的命令结束后退出。\n",
               stderr);
    if (qtPlatform == nullptr || shown == nullptr) {  // lost before there was a window
      instance.leave();
      std::_Exit(1);
    }
    shown->closeWithoutDisplay();
    qtPlatform->runWithoutDisplayUntilQuit();
    instance.leave();
    std::_Exit(0);  // back in Qt, the lost display would end the process with 1
  });
  // Until the window exists: the display plugin fails either when the application connects or, for
  // some, when the first window is created.
  std::optional<kestravine::DisplayGuard> guard(std::in_place, forced,
                                                [&instance] { instance.leave(); });
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Kestravine"));
  QApplication::setDesktopFileName(QStringLiteral("kestravine-launcher"));
  // From the binary, not the icon theme: looking the theme up costs the start-up several ms.
  QApplication::setWindowIcon(kestravine::windowIcon());
  // The window's close decides when the launcher ends: after a running command, not at once.
  QApplication::setQuitOnLastWindowClosed(false);
  // Never destroyed: output readers still running when the application ends may yet post.
  auto* platform = new kestravine::QtPlatform;
  if (const int error = platform->error()) {
    faces.wait();  // the toolkit's thread still fills in what this frame holds
    guard.reset();
    std::fputs((error == EMFILE || error == ENFILE
                    ? kestravine::descriptor_limit::shortage(
                          kestravine::descriptor_limit::current(), error)
                    : "kestravine-launcher：窗口没法工作：" +
                          kestravine::system_calls::describeError(error) + "。\n")
                   .c_str(),
               stderr);
    return 1;
  }
  kestravine::installPlatform(*platform);
  qtPlatform = platform;

  faces.wait();  // Qt's font database fills at the window's first text
  if (elsewhere) {
    kestravine::ElsewhereNotice notice(QString::fromStdString(instance.elsewhereText()));
    notice.show();
    guard.reset();
    instance.report();
    notice.exec();
    return 0;
  }
  kestravine::MainWindow window;
  shown = &window;
  kestravine::TerminationSignals termination([&window] { window.close(); });
  window.present();
  guard.reset();
  instance.serve([&window](const QString& token) { return !window.comeForward(token); });
  kestravine::snapshot::arm(window.content(), qEnvironmentVariable("KESTRAVINE_LAUNCHER_SHOT"));
  return QApplication::exec();
}
