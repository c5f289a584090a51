#include "event_loop/qt_platform.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <system_error>
#include <thread>

#include "event_loop/wake_pipe.h"
#include "process/child.h"
#include "support/processes.h"
#include "support/ui_wait.h"
#include "system/system_calls.h"

namespace kestravine {
namespace {

// One for the whole program and never destroyed, like the application's: threads still running
// may yet post to it.
QtPlatform& qtPlatform() {
  static QtPlatform* const platform = new QtPlatform;
  return *platform;
}

// A background task (a cancel's SIGKILL follow-up) runs on a thread of its own; where the system
// refuses one, on the main thread rather than never, which would keep the launcher from ending.
TEST(QtPlatform, RunsABackgroundTaskEvenWhenTheSystemRefusesAThread) {
  static const auto realStart = system_calls::startThread;
  QtPlatform* qt = &qtPlatform();
  for (bool refuse : {false, true}) {
    if (refuse) {
      system_calls::startThread = [](std::function<void()>) {
        throw std::system_error(EAGAIN, std::generic_category());
      };
    }
    std::atomic<bool> ran{false};
    std::thread::id where;
    qt->runInBackgroundAfter(Delay(0), [&] {
      where = std::this_thread::get_id();
      ran = true;
    });
    EXPECT_TRUE(testing::waitFor([&] { return ran.load(); })) << refuse;
    system_calls::startThread = realStart;
    EXPECT_EQ(where == std::this_thread::get_id(), refuse);
  }
}

// The launcher's own pipes, a running command's output and the wake-up, are close-on-exec: the
// browser opener, and whatever the toolkit starts, inherit none of them.
TEST(QtPlatform, TheLaunchersPipesReachNoProgramItStarts) {
  auto pipesNow = [] {
    std::map<int, std::string> pipes;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code error;
      const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
      if (target.starts_with("pipe:")) pipes[std::stoi(entry.path().filename())] = target;
    }
    return pipes;
  };
  const auto before = pipesNow();  // whatever the test runner handed down
  WakePipe wake([](std::string_view) {});
  ASSERT_TRUE(wake.isValid());
  Child running;
  running.start(
      "/bin/sleep", {"100"}, std::nullopt, {}, [](std::string) {}, [](std::int32_t) {});
  ASSERT_TRUE(running.isRunning());
  int pipes = 0;
  for (const auto& [fd, target] : pipesNow()) {
    if (before.contains(fd)) continue;
    ++pipes;
    EXPECT_TRUE(::fcntl(fd, F_GETFD) & FD_CLOEXEC) << fd << " " << target;
  }
  EXPECT_GE(pipes, 3);  // the wake-up's two ends, and the command's output
  running.cancel();
}

// The page counts as opened only when the desktop's opener says so: exit 0, or still running
// after a short while (it holds the browser in the foreground); an opener that fails, or none
// at all on a desktop that cannot open addresses (offscreen), leaves the launcher to say so.
TEST(QtPlatform, TheOpenerSaysWhetherThePageOpened) {
  QtPlatform* qt = &qtPlatform();
  const std::string bin = std::string(TEST_SCRATCH) + "/opener-bin";
  std::filesystem::create_directories(bin);
  const std::string path = std::getenv("PATH");
  const std::string holds = "echo $$ > '" + bin + "/pid'; exec sleep 30";
  const std::pair<const char*, bool> table[] = {
      {"exit 0", true}, {"exit 3", false}, {holds.c_str(), true}, {nullptr, false}};
  for (const auto& [body, expected] : table) {
    std::filesystem::remove(bin + "/xdg-open");
    if (body != nullptr) {
      std::ofstream(bin + "/xdg-open") << "#!/bin/sh\n" << body << "\n";
      std::filesystem::permissions(bin + "/xdg-open", std::filesystem::perms::owner_all);
    }
    setenv("PATH", (bin + ":" + (body ? path : std::string("/nonexistent"))).c_str(), 1);
    std::optional<bool> opened;
    qt->openUrl("http://127.0.0.1:5199/home/", [&](bool o) { opened = o; });
    setenv("PATH", path.c_str(), 1);
    EXPECT_FALSE(opened.has_value());  // never from inside the call
    ASSERT_TRUE(testing::waitFor([&] { return opened.has_value(); })) << (body ? body : "none");
    EXPECT_EQ(*opened, expected) << (body ? body : "none");
  }
  ::kill(std::stoi(testing::readFile(bin + "/pid")), SIGKILL);
}

}  // namespace
}  // namespace kestravine
