#include "process/process_identity.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "system/spawn.h"
#include "system/system_calls.h"

namespace kestravine {
namespace {

TEST(ProcessIdentity, ParentIsField4AndStartTimeField22AfterTheCommandName) {
  const std::string tail = " S 7 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 424242 99 100\n";
  const std::pair<std::string, std::optional<ProcessIdentity>> table[] = {
      {"17 (sleep)" + tail, ProcessIdentity{17, 424242, 7}},
      {"17 (a) (b c) d)" + tail, ProcessIdentity{17, 424242, 7}},  // blanks and parentheses
      {"17 (sleep) S 1 2 3", std::nullopt},
      {"no parenthesis at all", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& [stat, expected] : table) {
    EXPECT_EQ(ProcessIdentity::fromStat(17, stat), expected) << stat;
  }
}

// With pidfds, and without them where a kernel lacks them, a sandbox denies them or no
// descriptor is left: the start time still tells the process from others that had its pid.
TEST(ProcessIdentity, SignalsOnlyTheSameProcess) {
  const auto realOpen = system_calls::pidfdOpen;
  for (int denied : {0, ENOSYS, EPERM, EMFILE}) {
    system_calls::pidfdOpen = realOpen;
    SpawnResult sleeper = spawnProcess({"/bin/sleep", {"1000"}, std::nullopt, std::nullopt, -1});
    ASSERT_GT(sleeper.pid, 0);
    auto identity = ProcessIdentity::of(sleeper.pid);
    ASSERT_TRUE(identity.has_value());
    EXPECT_EQ(identity, ProcessIdentity::of(sleeper.pid));
    if (denied != 0) {
      static int error;
      error = denied;
      system_calls::pidfdOpen = [](pid_t) {
        errno = error;
        return -1;
      };
    }
    // Another process that had this pid before, or will have it after: not signalled.
    for (auto startTime : {identity->startTime - 1, identity->startTime + 1}) {
      EXPECT_FALSE((ProcessIdentity{sleeper.pid, startTime, getpid()}.signal(SIGKILL)));
    }
    EXPECT_EQ(waitpid(sleeper.pid, nullptr, WNOHANG), 0) << denied;  // still running
    const bool signalled = identity->signal(SIGKILL);
    if (!signalled) ::kill(sleeper.pid, SIGKILL);  // a failure must not wait on it for good
    EXPECT_TRUE(signalled) << denied;
    EXPECT_EQ(waitForExit(sleeper.pid), SIGKILL);
    EXPECT_FALSE(identity->signal(SIGKILL)) << denied;  // reaped: nobody has it
    EXPECT_FALSE(ProcessIdentity::of(sleeper.pid).has_value());
  }
  system_calls::pidfdOpen = realOpen;
}

}  // namespace
}  // namespace kestravine
