#include "app/qt_platform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <system_error>
#include <thread>

#include "support/ui_wait.h"
#include "system/system_calls.h"

namespace kestravine {
namespace {

// A background task (a cancel's SIGKILL follow-up) runs on a thread of its own; where the system
// refuses one, on the main thread rather than never, which would keep the launcher from ending.
TEST(QtPlatform, RunsABackgroundTaskEvenWhenTheSystemRefusesAThread) {
  static const auto realStart = system_calls::startThread;
  auto* qt = new QtPlatform;  // never destroyed, like the application's
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

}  // namespace
}  // namespace kestravine
