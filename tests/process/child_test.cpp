#include "process/child.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <thread>

#include "env/ctx.h"
#include "process/line_splitter.h"
#include "support/child_run.h"
#include "support/test_platform.h"

namespace kestravine {
namespace {

using testing::ChildRun;
using ::testing::ElementsAre;
using testing::helper;
using testing::isGone;
using testing::platform;
using ::testing::UnorderedElementsAre;
using Lines = std::vector<std::string>;

// Runs a shell line; "$0" and "$1" of the line are the two extra arguments.
ChildRun shell(const std::string& line, const std::string& zero = "", const std::string& one = "") {
  return ChildRun("/bin/bash", {"-c", line, zero, one});
}

struct OutputCase {
  const char* name;
  std::string format;  // printf's escapes name the bytes
  int exitCode;
  Lines expected;
  friend void PrintTo(const OutputCase& c, std::ostream* os) { *os << c.name; }
};

class ChildOutput : public ::testing::TestWithParam<OutputCase> {};

TEST_P(ChildOutput, DeliversCleanedNonEmptyLinesAndTheExitCode) {
  const auto& c = GetParam();
  ChildRun run = shell("printf \"$0\"; exit $1", c.format, std::to_string(c.exitCode));
  ASSERT_TRUE(run.waitFor(c.expected.size()));
  EXPECT_EQ(run.got->lines, c.expected);
  EXPECT_THAT(run.got->exits, ElementsAre(c.exitCode));
  EXPECT_TRUE(run.child->isRunning());  // stays true after the end
}

INSTANTIATE_TEST_SUITE_P(
    Table, ChildOutput,
    ::testing::Values(OutputCase{"DropsEmptyAndBlankLines", "a\\n\\n   \\nb", 0, {"a", "b"}},
                      OutputCase{"NoLineEndAtAll", "only line", 0, {"only line"}},
                      OutputCase{"CrLfStaysInsideTheLine", "x\\r\\ny\\n", 0, {"x\r\ny"}},
                      OutputCase{"SilentExitThree", "", 3, {}},
                      OutputCase{"EscapesRemovedAndTrimmed", "  \\e[32mok\\e[0m  \\n", 1, {"ok"}},
                      OutputCase{"InvalidUtf8Replaced", "\\xff\\xfeA\\n", 0, {"\ufffd\ufffdA"}},
                      OutputCase{"NulBytesKept", "a\\0b\\n", 0, {std::string("a\0b", 3)}},
                      OutputCase{"ChineseText", "\\xe5\\xae\\x89\\xe8\\xa3\\x85\\n", 0, {"安装"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Child, SignalThatEndsTheCommandIsItsStatus) {
  for (const char* signal : {"TERM", "KILL"}) {
    ChildRun run = shell("kill -s $0 $$", signal);
    ASSERT_TRUE(run.waitFor());
    EXPECT_THAT(run.got->exits, ElementsAre(std::string(signal) == "TERM" ? 15 : 9));
  }
}

TEST(Child, FailedLaunchGivesOneLineThenStatus127) {
  const std::pair<std::string, std::optional<std::string>> table[] = {
      {"/nonexistent/tool", std::nullopt},
      {"/etc/passwd", std::nullopt},  // not executable
      {"/bin/pwd", "/nonexistent/dir"},
  };
  for (const auto& [program, cwd] : table) {
    ChildRun run(program, {}, cwd);
    EXPECT_TRUE(run.got->events.empty());  // nothing from inside start()
    ASSERT_TRUE(run.waitFor());
    EXPECT_THAT(run.got->events, ElementsAre("line:起不来：" + program, "exit:127"));
    EXPECT_FALSE(run.child->isRunning());
  }
}

TEST(Child, OutputOfABackgroundProcessKeepsArrivingAfterTheExit) {
  std::filesystem::create_directories(TEST_SCRATCH);
  const std::string gate = std::string(TEST_SCRATCH) + "/gate";
  unlink(gate.c_str());
  ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
  ChildRun run(helper(), {"background", gate});
  ASSERT_TRUE(run.waitFor(1));
  EXPECT_THAT(run.got->events, UnorderedElementsAre("line:parent", "exit:0"));
  // Only now does the background process write; its lines still arrive.
  close(open(gate.c_str(), O_WRONLY));
  ASSERT_TRUE(run.waitFor(4));
  EXPECT_THAT(std::vector(run.got->events.begin() + 2, run.got->events.end()),
              ElementsAre("line:late 1", "line:late 2", "line:late 3"));
}

TEST(Child, ReleasedChildStillDeliversEverything) {
  ChildRun run = shell("printf 'one\\ntwo'; exit 4");
  run.child.reset();
  ASSERT_TRUE(run.waitFor(2));
  EXPECT_THAT(run.got->lines, ElementsAre("one", "two"));
  EXPECT_THAT(run.got->exits, ElementsAre(4));
}

TEST(Child, LongLinesArriveCutAtTheCapAndMarked) {
  ChildRun run = shell("head -c 50000000 /dev/zero | tr '\\0' x; printf '\\nnext\\n'");
  ASSERT_TRUE(run.waitFor(2));
  ASSERT_EQ(run.got->lines.size(), 2u);
  EXPECT_EQ(run.got->lines[0], std::string(LineSplitter::kMaxLineCharacters, 'x') + "\u2026");
  EXPECT_EQ(run.got->lines[1], "next");
}

// Counts lines as they arrive and checks each is the next one expected.
struct InOrder {
  std::function<std::string(long)> expected;
  long count = 0;
  long firstWrong = -1;
  void operator()(const std::string& line) {
    if (firstWrong < 0 && line != expected(count)) firstWrong = count;
    ++count;
  }
};

TEST(ChildFlood, EveryLineArrivesInOrder) {
  struct Case {
    const char* style;
    long lines;
    std::function<std::string(long)> expected;
  };
  const Case table[] = {
      {"plain", 10000000, [](long i) { return "INFO step " + std::to_string(i) + " done"; }},
      {"invalid", 1000000,
       [](long i) {
         return "\ufffd\ufffd step " + std::to_string(i) + std::string(" \0 done", 7);
       }},
  };
  for (const auto& c : table) {
    auto seen = std::make_shared<InOrder>();
    seen->expected = c.expected;
    bool exited = false;
    Child child;
    child.start(
        helper(), {"flood", std::to_string(c.lines), c.style}, std::nullopt, {},
        [seen](std::string line) { (*seen)(line); }, [&](std::int32_t) { exited = true; });
    ASSERT_TRUE(platform().runUntil([&] { return exited && seen->count == c.lines; },
                                    std::chrono::minutes(2)))
        << c.style << ": " << seen->count << " lines";
    EXPECT_EQ(seen->firstWrong, -1) << c.style;
  }
}

// The environment: launcher environment, product PATH first, extra variables laid over it.
TEST(Child, ComposesTheEnvironment) {
  const std::string nodeBin = Ctx::kestravineHome() + "/node/bin";
  auto valueOf = [](const std::string& name, std::map<std::string, std::string> extra = {}) {
    ChildRun run("/usr/bin/printenv", {name}, std::nullopt, std::move(extra));
    EXPECT_TRUE(run.waitFor(1));
    return run.got->lines.empty() ? std::string() : run.got->lines[0];
  };
  const std::string launcherPath = std::getenv("PATH");
  EXPECT_EQ(valueOf("PATH"), nodeBin + ":" + launcherPath);
  EXPECT_EQ(valueOf("PATH", {{"PATH", "/only"}}), "/only");
  EXPECT_EQ(valueOf("HOME", {{"HOME", "/elsewhere"}}), "/elsewhere");
  setenv("LATE_VARIABLE", "live", 1);  // read at start(), not from a snapshot
  EXPECT_EQ(valueOf("LATE_VARIABLE"), "live");
  unsetenv("LATE_VARIABLE");
  setenv("PATH", "", 1);
  EXPECT_EQ(valueOf("PATH"), nodeBin + ":");
  unsetenv("PATH");
  EXPECT_EQ(valueOf("PATH"), nodeBin + ":/usr/bin:/bin:/usr/sbin:/sbin");
  setenv("PATH", launcherPath.c_str(), 1);
}

TEST(Child, WorkingDirectoryGivenOrInherited) {
  ChildRun inherited("/bin/pwd", {});
  ChildRun given("/bin/pwd", {}, "/tmp");
  ASSERT_TRUE(inherited.waitFor(1));
  ASSERT_TRUE(given.waitFor(1));
  EXPECT_THAT(inherited.got->lines, ElementsAre(std::filesystem::current_path().string()));
  EXPECT_THAT(given.got->lines, ElementsAre("/tmp"));
}

// Collects the "pid N" lines a helper tree prints.
std::vector<pid_t> pidsOf(const Lines& lines) {
  std::vector<pid_t> pids;
  for (const auto& line : lines) pids.push_back(std::atoi(line.c_str() + 4));
  return pids;
}

bool allGone(const std::vector<pid_t>& pids) {
  return std::all_of(pids.begin(), pids.end(), isGone);
}

// Killed processes vanish asynchronously; wait for that with a generous real-time limit.
bool waitAllGone(const std::vector<pid_t>& pids) {
  for (int i = 0; i < 2000 && !allGone(pids); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return allGone(pids);
}

TEST(ChildCancel, StopsAThreeLevelTreeWithTrappersAfterTheFollowUp) {
  // The command traps SIGTERM; below it a trapping child with a trapping and a normal child,
  // and a normal child with a normal child.
  ChildRun run(helper(), {"tree", "t", "tn/tn"});
  ASSERT_TRUE(platform().runUntil([&] { return run.got->lines.size() == 5; }));
  const std::vector<pid_t> pids = pidsOf(run.got->lines);
  std::set<pid_t> below(pids.begin() + 1, pids.end());
  auto listed = Child::descendants(pids[0]);
  EXPECT_EQ(std::set<pid_t>(listed.begin(), listed.end()), below);

  const std::size_t timersBefore = platform().pendingTimers();
  run.child->cancel();
  EXPECT_EQ(platform().pendingTimers(), timersBefore + 1);
  EXPECT_EQ(platform().nextTimerAt() - platform().now(), std::chrono::seconds(10));
  // The trappers survive SIGTERM; the follow-up's SIGKILL ends them.
  EXPECT_FALSE(isGone(pids[0]));
  platform().advance(std::chrono::seconds(10));
  ASSERT_TRUE(run.waitFor());
  EXPECT_THAT(run.got->exits, ElementsAre(9));
  EXPECT_TRUE(waitAllGone(pids));
}

TEST(ChildCancel, PlainCommandEndsOnSigterm) {
  ChildRun run(helper(), {"tree", "n", ""});
  ASSERT_TRUE(platform().runUntil([&] { return !run.got->lines.empty(); }));
  run.child->cancel();
  ASSERT_TRUE(run.waitFor());
  EXPECT_THAT(run.got->exits, ElementsAre(15));
  platform().advance(std::chrono::seconds(10));  // the follow-up finds it reaped: no signal
}

TEST(ChildCancel, AfterTheEndOrBeforeTheStartSignalsNothing) {
  ChildRun ended(helper(), {"emit", "", "0"});
  ASSERT_TRUE(ended.waitFor());
  Child neverStarted;
  const std::size_t timersBefore = platform().pendingTimers();
  ended.child->cancel();
  neverStarted.cancel();
  EXPECT_EQ(platform().pendingTimers(), timersBefore);
}

TEST(Child, OnlyTheThreeStandardDescriptorsReachTheCommand) {
  // Descriptors the launcher inherited from whoever started it are not close-on-exec.
  const int inherited[] = {dup2(STDIN_FILENO, 9), fcntl(STDIN_FILENO, F_DUPFD, 200)};
  for (int fd : inherited) {
    ASSERT_GE(fd, 0);
    ChildRun run = shell(
        "for fd in 0 1 2 $0; do [ -e /proc/$$/fd/$fd ] && echo \"$fd open\" "
        "|| echo \"$fd closed\"; done",
        std::to_string(fd));
    ASSERT_TRUE(run.waitFor(4));
    EXPECT_THAT(run.got->lines,
                ElementsAre("0 open", "1 open", "2 open", std::to_string(fd) + " closed"));
    close(fd);
  }
}

TEST(ChildCancel, FollowUpKillsWhatGotSigtermAlsoAfterItsParentDied) {
  // The command dies of SIGTERM; its child ignores SIGTERM and is handed to another parent.
  ChildRun run(helper(), {"tree", "n", "t"});
  ASSERT_TRUE(platform().runUntil([&] { return run.got->lines.size() == 2; }));
  const std::vector<pid_t> pids = pidsOf(run.got->lines);
  run.child->cancel();
  ASSERT_TRUE(run.waitFor());
  EXPECT_THAT(run.got->exits, ElementsAre(15));
  EXPECT_TRUE(Child::descendants(pids[0]).empty());  // no longer below the command
  EXPECT_FALSE(isGone(pids[1]));
  platform().advance(std::chrono::seconds(10));
  EXPECT_TRUE(waitAllGone(pids));
}

TEST(ChildCancel, PendingFollowUpsHoldBackWhatWaitsForThem) {
  bool ran = false;
  Child::afterPendingKills([&] { ran = true; });
  EXPECT_FALSE(ran);  // never from inside the call
  ASSERT_TRUE(platform().runUntil([&] { return ran; }));

  ChildRun run(helper(), {"tree", "t", ""});
  ASSERT_TRUE(platform().runUntil([&] { return !run.got->lines.empty(); }));
  run.child->cancel();
  ran = false;
  Child::afterPendingKills([&] { ran = true; });
  platform().advance(std::chrono::milliseconds(9999));  // runs what is due, and drains
  EXPECT_FALSE(ran);
  platform().advance(std::chrono::milliseconds(1));
  ASSERT_TRUE(platform().runUntil([&] { return ran; }));
  ASSERT_TRUE(run.waitFor());
  EXPECT_THAT(run.got->exits, ElementsAre(9));
}

}  // namespace
}  // namespace kestravine
