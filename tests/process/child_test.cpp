#include "process/child.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

#include "env/ctx.h"
#include "process/process_identity.h"
#include "support/processes.h"
#include "support/test_platform.h"
#include "system/system_calls.h"

namespace kestravine::testing {
namespace {

using ::testing::ElementsAre;
using Lines = std::vector<std::string>;

// A command run through a fresh Child, with what its callbacks delivered. Shared with the
// callbacks, so that deliveries after the test has ended land harmlessly.
struct Command {
  struct Got {
    Lines lines;
    std::vector<std::int32_t> exits;
    std::size_t linesAtExit = 0;
  };
  Command(const std::string& program, const Lines& args, std::optional<std::string> cwd = {},
          std::map<std::string, std::string> extraEnv = {}) {
    child->start(
        program, args, std::move(cwd), std::move(extraEnv),
        [got = got](std::string line) { got->lines.push_back(std::move(line)); },
        [got = got](std::int32_t status) {
          got->exits.push_back(status);
          got->linesAtExit = got->lines.size();
        });
  }
  // Runs the main queue until at least `lines` lines and, unless `exit` is false, the exit have
  // arrived.
  bool waitFor(std::size_t lines = 0, bool exit = true) {
    return platform().runUntil(
        [&] { return got->lines.size() >= lines && (!exit || !got->exits.empty()); });
  }
  // The numbers of a helper tree's lines that start with `word`: "port N" (a detached server's
  // port) or "pid N d" (a process of disposition d, or of any with `disposition` 0).
  std::vector<int> numbers(const std::string& word, char disposition = 0) const {
    std::vector<int> found;
    for (const auto& line : got->lines) {
      if (line.starts_with(word + " ") && (disposition == 0 || line.back() == disposition))
        found.push_back(std::atoi(&line[word.size() + 1]));
    }
    return found;
  }
  std::vector<pid_t> pids(char disposition = 0) const { return numbers("pid", disposition); }
  std::unique_ptr<Child> child = std::make_unique<Child>();
  std::shared_ptr<Got> got = std::make_shared<Got>();
};

// A shell line prints its extra argument as a printf format, then ends; its lines come before its
// exit. After the end the child stays "running", and a cancel signals nothing and leaves nothing
// due.
TEST(Child, DeliversCleanedNonEmptyLinesAndTheExitStatus) {
  const std::string cut = std::string(16384, 'x') + "\u2026";  // marked, the rest dropped
  const std::tuple<std::string, std::string, Lines, std::int32_t> table[] = {
      {"only line", "exit 0", {"only line"}, 0},
      {"x\\r\\n 10%%\\r100%%\\r\\n", "exit 0", {"x", "100%"}, 0},  // as a terminal shows
      {"", "exit 3", {}, 3},
      {"  \\e[32mok\\e[0m  \\n", "echo err >&2; exit 1", {"ok", "err"}, 1},
      {"\\xe5\\xae\\x89\\xe8\\xa3\\x85\\n", "kill -s TERM $$", {"安装"}, 15},
      {"", "kill -s KILL $$", {}, 9},
      {"", "head -c 50000000 /dev/zero | tr '\\0' x; echo; echo next", {cut, "next"}, 0},
      // What a background process writes after the exit still arrives.
      {"parent\\n", "(sleep 0.2; echo late) & exit 0", {"parent", "late"}, 0},
  };
  for (const auto& [format, end, expected, status] : table) {
    Command run("/bin/bash", {"-c", "printf \"$0\"; " + end, format});
    ASSERT_TRUE(run.waitFor(expected.size()));
    EXPECT_EQ(run.got->lines, expected);
    EXPECT_THAT(run.got->exits, ElementsAre(status)) << end;
    // Every line written before the exit comes before it; a background process's, after.
    if (end.find('&') == std::string::npos) EXPECT_EQ(run.got->linesAtExit, expected.size()) << end;
    EXPECT_TRUE(run.child->isRunning());
    ASSERT_TRUE(waitForNoMarkedProcess().empty());  // nothing carries the command's mark now
    const std::size_t timers = platform().pendingTimers();
    run.child->cancel();
    Child().cancel();  // never started
    EXPECT_EQ(platform().pendingTimers(), timers);
  }
}

// The line, then why, in the system's words and the error's name.
TEST(Child, FailedLaunchGivesTheLineAndTheReasonThenStatus127) {
  const std::tuple<std::string, std::optional<std::string>, std::string> table[] = {
      {"/nonexistent/tool", std::nullopt, "ENOENT"},
      {"/etc/passwd", std::nullopt, "EACCES"},  // not executable
      {"/bin/pwd", "/nonexistent/dir", "ENOENT"},
  };
  for (const auto& [program, cwd, name] : table) {
    Command run(program, {}, cwd);
    EXPECT_TRUE(run.got->lines.empty() && run.got->exits.empty());  // nothing inside start()
    ASSERT_TRUE(run.waitFor());
    const int error = name == "EACCES" ? EACCES : ENOENT;
    EXPECT_THAT(run.got->lines,
                ElementsAre("起不来：" + program,
                            "原因：" + std::string(strerror(error)) + "（" + name + "）"));
    EXPECT_THAT(run.got->exits, ElementsAre(127));
    EXPECT_EQ(run.got->linesAtExit, 2u);
    EXPECT_FALSE(run.child->isRunning());
  }
}

// Two million lines arrive whole and in order, through a pipe that keeps filling.
TEST(Child, FloodsArriveWholeInOrder) {
  long count = 0, firstWrong = -1;
  bool exited = false;
  Child child;
  child.start(
      "/usr/bin/seq", {"-f", "INFO step %.0f done", "0", "1999999"}, std::nullopt, {},
      [&](std::string line) {
        if (line != "INFO step " + std::to_string(count++) + " done" && firstWrong < 0)
          firstWrong = count - 1;
      },
      [&](std::int32_t) { exited = true; });
  ASSERT_TRUE(
      platform().runUntil([&] { return exited && count == 2000000; }, std::chrono::minutes(2)))
      << count;
  EXPECT_EQ(firstWrong, -1);
}

// The composed environment (its rules are ChildEnvironment's) and a step mark of each command's
// own; the working directory given or the launcher's; only the three standard descriptors, even
// of those the launcher inherited from whoever started it, which are not close-on-exec; input
// from /dev/null, whatever the launcher's own stdin holds; a session of its own, so a terminal's
// Ctrl-C reaches the launcher alone.
TEST(Child, ComposesEnvironmentDirectoryDescriptorsInputAndSession) {
  const std::string path = Ctx::kestravineHome() + "/node/bin:" + std::getenv("PATH");
  const std::string cwd = std::filesystem::current_path();
  const int inherited[] = {dup2(STDIN_FILENO, 9), fcntl(STDIN_FILENO, F_DUPFD, 200)};
  // The launcher's stdin holds an answer, as a terminal would.
  int answer[2];
  ASSERT_EQ(pipe(answer), 0);
  ASSERT_EQ(write(answer[1], "yes\n", 4), 4);
  const int stdinBefore = dup(STDIN_FILENO);
  dup2(answer[0], STDIN_FILENO);
  const std::string report =
      "printf '%s\\n' \"$PATH\" \"$HOME\" \"$PWD\"; for fd in 0 1 2 " +
      std::to_string(inherited[0]) + " " + std::to_string(inherited[1]) +
      "; do [ -e /proc/$$/fd/$fd ] && printf '%s ' $fd; done; echo; read -r a; echo \"read $? $a\";"
      " read -r -a stat < /proc/$$/stat; [ \"${stat[4]} ${stat[5]}\" = \"$$ $$\" ] && echo leader;"
      " printf '%s\\n' \"$KESTRAVINE_STEP\"";
  const std::tuple<std::map<std::string, std::string>, std::optional<std::string>, Lines> table[] =
      {
          {{}, {}, {path, std::getenv("HOME"), cwd, "0 1 2", "read 1", "leader"}},
          {{{"HOME", "/else"}}, "/tmp", {path, "/else", "/tmp", "0 1 2", "read 1", "leader"}},
      };
  std::set<std::string> marks;
  for (const auto& [extra, dir, expected] : table) {
    Command run("/bin/bash", {"-c", report}, dir, extra);
    ASSERT_TRUE(run.waitFor(7));
    EXPECT_EQ(Lines(run.got->lines.begin(), run.got->lines.end() - 1), expected);
    marks.insert(run.got->lines.back());
  }
  dup2(stdinBefore, STDIN_FILENO);
  for (int fd : {inherited[0], inherited[1], answer[0], answer[1], stdinBefore}) close(fd);
  EXPECT_EQ(marks.size(), std::size(table));  // each its own
}

// Whether a loopback port is free to listen on again.
bool portIsFree(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const bool free = bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  close(fd);
  return free;
}

// Cancel: SIGTERM to the whole tree at once (what does not trap it ends), SIGKILL 10 s later to
// whatever then descends from the command (a TERM trap may have started more), to what got the
// SIGTERM even if its parent has died since, and to the command. Servers that detached
// themselves (new session, parent gone) are reached through the step's mark, in both rounds,
// and their ports are free again.
TEST(ChildCancel, StopsEverythingTheCommandStartedDetachedServersIncluded) {
  // The processes' lines before the cancel, and after it; upper case detaches.
  const std::tuple<std::string, std::string, std::size_t, std::size_t, std::int32_t> table[] = {
      {"t", "tn/tn", 5, 5, 9},  // a trapping command with trapping and plain processes below
      {"n", "tN", 4, 4, 15},    // a detached server that ends on SIGTERM, beside a trapping child
      {"t", "S", 3, 4, 9},      // a detached server whose TERM trap starts a process
      {"t", "T", 3, 3, 9},      // a detached server that ignores SIGTERM
      // Processes without the mark (their environment shed), known only by their parents:
      {"n", "x", 2, 2, 15},  // the command ends on SIGTERM; its trapping child is orphaned
      {"e", "", 1, 2, 9},    // the command's TERM trap starts a process that ignores SIGTERM
  };
  for (const auto& [disposition, shape, size, after, status] : table) {
    Command run(TEST_HELPER, {"tree", disposition, shape});
    ASSERT_TRUE(run.waitFor(size, false));
    run.child->cancel();
    bool killed = false;  // what waits for the pending SIGKILL
    Child::afterPendingKills([&] { killed = true; });
    ASSERT_TRUE(run.waitFor(after, false));
    EXPECT_TRUE(eventually([&] { return std::ranges::all_of(run.pids('n'), isGone); }))
        << disposition << shape;
    for (pid_t pid : run.pids('t')) EXPECT_FALSE(isGone(pid)) << disposition << shape;
    platform().advance(std::chrono::milliseconds(9999));  // runs what is due, and drains
    EXPECT_FALSE(killed);
    platform().advance(std::chrono::milliseconds(1));
    ASSERT_TRUE(platform().runUntil([&] { return killed && !run.got->exits.empty(); }));
    EXPECT_THAT(run.got->exits, ElementsAre(status)) << disposition << shape;
    EXPECT_TRUE(waitForNoMarkedProcess().empty()) << disposition << shape;
    // A process lets go of its memory, and with it of its mark, just before its descriptors.
    for (int port : run.numbers("port"))
      EXPECT_TRUE(eventually([&] { return portIsFree(port); })) << disposition << shape;
  }
}

// A cancel reaches its own command's processes only: the server that another, ended command
// left detached lives on. A cancel that comes after its command has ended (a click racing the
// exit report) still stops what carries the command's mark, SIGKILL included.
TEST(ChildCancel, ReachesItsOwnCommandsProcessesOnly) {
  Command ended(TEST_HELPER, {"tree", "n", "T"});
  ASSERT_TRUE(ended.waitFor(3, false));
  kill(ended.pids()[0], SIGKILL);
  ASSERT_TRUE(ended.waitFor(3));
  Command running(TEST_HELPER, {"tree", "n", "N"});
  ASSERT_TRUE(running.waitFor(3, false));
  running.child->cancel();
  EXPECT_TRUE(eventually([&] { return std::ranges::all_of(running.pids(), isGone); }));
  const pid_t server = ended.pids()[1];  // ignores SIGTERM
  EXPECT_FALSE(isGone(server));
  ended.child->cancel();
  platform().advance(std::chrono::seconds(10));
  EXPECT_TRUE(waitForNoMarkedProcess().empty());
}

// Descriptors and threads of this process.
std::ptrdiff_t descriptorsAndThreads() {
  std::ptrdiff_t count = 0;
  for (const char* dir : {"/proc/self/fd", "/proc/self/task"})
    count += std::distance(std::filesystem::directory_iterator(dir), {});
  return count;
}

// Neither a recorded process that has ended and been reaped nor the command itself once reaped
// is signalled by the follow-up: the process that took its pid since is spared. Real processes,
// since a raw signal would bypass the seam; run as the first process of a PID namespace of its
// own (support/own_pids.sh), which lets the test hand out that pid.
TEST(ChildCancelPids, TheKillFollowUpSparesWhoeverTookAFreedPid) {
  if (getpid() != 1) GTEST_SKIP() << "needs a PID namespace of its own (support/own_pids.sh)";
  const std::tuple<bool, std::string, std::int32_t> table[] = {
      // A descendant ending on SIGTERM, reaped by its shell, which goes on.
      {false, "sleep 1000 & echo \"pid $!\"; trap '' TERM; wait; echo reaped; exec sleep 1000",
       SIGKILL},
      {true, "echo \"pid $$\"; exec sleep 1000", SIGTERM},  // the command
  };
  for (const auto& [command, script, status] : table) {
    Command run("/bin/bash", {"-c", script});
    ASSERT_TRUE(run.waitFor(1, false));
    const pid_t freed = run.pids()[0];
    const auto replaced = ProcessIdentity::of(freed);
    ASSERT_TRUE(replaced);
    run.child->cancel();
    ASSERT_TRUE(run.waitFor(command ? 1 : 2, command));  // reaped
    // Only a later start time tells the newcomer apart: one in the same clock tick is tried again.
    pid_t stranger = -1;
    for (int attempt = 0; attempt < 1000 && stranger < 0; ++attempt) {
      if (!(std::ofstream("/proc/sys/kernel/ns_last_pid") << freed - 1).flush())
        GTEST_SKIP() << "this namespace does not let the test choose the next pid";
      char sleep[] = "sleep", forever[] = "1000";
      char* const argv[] = {sleep, forever, nullptr};
      pid_t pid = -1;
      ASSERT_EQ(posix_spawn(&pid, "/bin/sleep", nullptr, nullptr, argv, environ), 0);
      const auto now = ProcessIdentity::of(pid);
      if (pid == freed && now && now->startTime != replaced->startTime)
        stranger = pid;
      else
        kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
    }
    ASSERT_GT(stranger, 0);
    bool killed = false;
    Child::afterPendingKills([&] { killed = true; });
    platform().advance(std::chrono::seconds(10));
    ASSERT_TRUE(platform().runUntil([&] { return killed && !run.got->exits.empty(); }));
    EXPECT_THAT(run.got->exits, ElementsAre(status)) << command;
    // A SIGKILL, once sent, decides how the process ends: a SIGTERM after it comes too late.
    kill(stranger, SIGTERM);
    int end = 0;
    waitpid(stranger, &end, 0);
    EXPECT_EQ(WTERMSIG(end), SIGTERM) << command;
  }
}

// Cancelling trees again and again, the Child dropped at once as the model does, leaves no
// process, descriptor or thread behind; the last time with the real 10 s delay on a thread of
// its own.
TEST(ChildSoak, CancelledTreesLeaveNothingBehind) {
  auto cycle = [](bool realTime) {
    platform().setRealTimeBackground(realTime);
    Command run(TEST_HELPER, {"tree", "t", "tn/tn"});
    EXPECT_TRUE(run.waitFor(5, false));
    run.child->cancel();
    run.child.reset();
    if (!realTime) platform().advance(std::chrono::seconds(10));
    EXPECT_TRUE(run.waitFor());
    platform().setRealTimeBackground(false);
  };
  cycle(false);  // what is made once per process is in the baseline
  const std::ptrdiff_t before = descriptorsAndThreads();
  for (int i = 0; i < 100 && !::testing::Test::HasFailure(); ++i) cycle(i == 99);
  EXPECT_TRUE(waitForNoMarkedProcess().empty());
  // Readers end a moment later.
  EXPECT_TRUE(eventually([&] { return descriptorsAndThreads() <= before; }));
}

}  // namespace
}  // namespace kestravine::testing
