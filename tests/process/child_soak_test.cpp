// Cancelling process trees again and again leaves nothing behind: no process of the trees, no
// zombie, no descriptor and no thread more than before.
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <thread>

#include "process/child.h"
#include "support/child_run.h"
#include "support/test_platform.h"

namespace kestravine {
namespace {

using testing::ChildRun;
using testing::helper;
using testing::isGone;
using testing::platform;

std::size_t entries(const char* dir) {
  std::size_t count = 0;
  if (DIR* d = opendir(dir)) {
    while (dirent* e = readdir(d)) count += e->d_name[0] != '.';
    closedir(d);
  }
  return count - (std::string(dir) == "/proc/self/fd" ? 1 : 0);  // opendir's own descriptor
}

// Our own children that have ended but were not reaped.
std::size_t zombieChildren() {
  std::size_t zombies = 0;
  std::ifstream children("/proc/self/task/" + std::to_string(getpid()) + "/children");
  for (pid_t pid; children >> pid;) zombies += isGone(pid) ? 1 : 0;
  return zombies;
}

// Descriptors and threads end a moment after the processes: the readers see end of file then.
template <typename F>
bool eventually(F condition) {
  for (int i = 0; i < 4000 && !condition(); ++i) {
    platform().runUntil([] { return true; });
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return condition();
}

// A three-level tree: the command and one of its children trap SIGTERM, and every process,
// grandchildren included, holds the output pipe open.
std::vector<pid_t> cancelTree(bool realTime) {
  ChildRun run(helper(), {"tree", "t", "tn/tn"});
  EXPECT_TRUE(platform().runUntil([&] { return run.got->lines.size() == 5; }));
  std::vector<pid_t> pids;
  for (const auto& line : run.got->lines) pids.push_back(std::stoi(line.substr(4)));
  run.child->cancel();
  run.child.reset();  // the model drops its Child at once; the follow-up must not need it
  if (!realTime) platform().advance(std::chrono::seconds(10));
  EXPECT_TRUE(
      platform().runUntil([&] { return !run.got->exits.empty(); }, std::chrono::seconds(30)));
  EXPECT_EQ(run.got->exits, std::vector<std::int32_t>{9});
  return pids;
}

TEST(ChildSoak, TwoHundredCancelledTreesLeaveNothingBehind) {
  // One cycle first, so what is made once per process (a sanitizer's own thread, say) is
  // counted in the baseline.
  auto warmUp = cancelTree(false);
  ASSERT_TRUE(eventually([&] { return std::all_of(warmUp.begin(), warmUp.end(), isGone); }));
  const std::size_t fds = entries("/proc/self/fd");
  const std::size_t threads = entries("/proc/self/task");
  std::vector<pid_t> all;
  for (int cycle = 0; cycle < 200; ++cycle) {
    auto pids = cancelTree(false);
    all.insert(all.end(), pids.begin(), pids.end());
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_TRUE(eventually([&] { return std::all_of(all.begin(), all.end(), isGone); }));
  EXPECT_TRUE(eventually([] { return zombieChildren() == 0; }));
  // No more than before: the baseline may still count the warm-up's threads on their way out,
  // while a leak over 200 cycles would add hundreds.
  EXPECT_TRUE(eventually([&] { return entries("/proc/self/fd") <= fds; }))
      << entries("/proc/self/fd") << " descriptors, " << fds << " before";
  EXPECT_TRUE(eventually([&] { return entries("/proc/self/task") <= threads; }))
      << entries("/proc/self/task") << " threads, " << threads << " before";
}

// The same with the real ten-second delay and the follow-up on a thread of its own.
TEST(ChildSoak, RealFollowUpEndsWhatIgnoredSigterm) {
  platform().setRealTimeBackground(true);
  auto pids = cancelTree(true);
  platform().setRealTimeBackground(false);
  EXPECT_TRUE(eventually([&] { return std::all_of(pids.begin(), pids.end(), isGone); }));
}

}  // namespace
}  // namespace kestravine
