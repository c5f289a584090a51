#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "model/readiness_wait.h"
#include "support/held_port.h"
#include "support/model_fixture.h"

namespace kestravine::testing {
namespace {

using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using Phase = Model::Phase;

int applicationPort() {
  return static_cast<int>(5199 + Ctx::portOffset());
}

// This test program plays a program that is not the product: its server answers on the
// product's port while the program stands outside the product home.
void playAStranger() {
  ASSERT_EQ(chdir(TEST_SCRATCH), 0);
}

std::string strangerRefusal() {
  return "端口 " + std::to_string(applicationPort()) + " 被 model_tests（进程 " +
         std::to_string(getpid()) + "）占着，它不是Varnholt。关掉它，或者换一个 " +
         "ZORVEL_PORT_OFFSET 再试。";
}

// A page answering on the product's port that the product did not serve is never opened: the
// step ends at once with a text that names the program, after an install as after a service
// start. A stranger already holding the port fails the check before the service start runs: no
// start that could not bind, no probing for 90 s.
TEST_F(ModelTest, NeverOpensAPageAnotherProgramServesOnThePort) {
  for (bool install : {true, false}) {
    fresh();
    server::serve([](int) { return 200; });
    playAStranger();
    if (install) start(true, "exit 0");
    if (!install) installProduct("touch '" + record() + "/started'");
    if (!install) model->check();
    ASSERT_TRUE(runToEnd());
    EXPECT_EQ(model->failure(), strangerRefusal());
    EXPECT_FALSE(model->canCancel());
    EXPECT_EQ(server::requests(), install ? 1 : 0);
    EXPECT_FALSE(std::filesystem::exists(record() + "/started"));
    settle();
    EXPECT_EQ(opened(), 0);
    EXPECT_EQ(quits(), 0);
  }
}

// Nobody else may hold the base port (5199) here: the entry runs in a network of its own where
// the machine allows it, and the test holds the port with a socket that listens only when the
// test makes it the product's server (this program standing in the product home).
class ModelEnvBasePort : public ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();  // also for each fresh() world; the port stays held
    writeFile(home() + "/app/.zorvel/logs/monitor.log", log_);
    if (!held_) held_ = std::make_unique<HeldPort>(5199);
    if (!held_->bound())
      GTEST_SKIP() << "127.0.0.1:5199 is taken by another program, which could answer the probe";
    ASSERT_EQ(applicationPort(), 5199);
  }
  void TearDown() override {
    held_.reset();
    ModelTest::TearDown();
  }
  // The held port takes connections from now on, and answers none.
  void listenOnly() { held_->listenSilently(); }
  // From now on the held port answers every request with 200.
  void answer() { held_->answer(200); }
  // Runs until the service start has ended and `probes` probes have failed after it, the pause
  // after the last one still running.
  bool probeTimes(int probes) {
    return platform().runUntil([&] { return !model->runs(); }) &&
           elapse(ReadinessWait::kPause * probes - ReadinessWait::kWatchTick);
  }
  // Runs the flow to its end: the next probe, after its pause, opens or gives up.
  void expectDecidedByTheNextProbe(bool opens) {
    const Delay from = platform().now();
    ASSERT_TRUE(runToEnd());
    EXPECT_LE((opens ? platform().openedAt() : platform().now()) - from, ReadinessWait::kPause);
    EXPECT_EQ(opened(), opens ? 1 : 0);
    EXPECT_EQ(model->phase(), opens ? Phase::working : Phase::failed);
  }
  const std::string log_ =
      "first\n" + std::string(70000, 'x') + "\n\x1b[31mline 1\x1b[0m\r\n\n" +
      "line 2\nline 3\nline 4\nline 5\nline 6\nline 7\nline 8\nline 9\nline 10";
  const std::vector<std::string> logTail_{"日志的最后几行：", "line 1", "line 2", "line 3",
                                          "line 4",           "line 5", "line 6", "line 7",
                                          "line 8",           "line 9", "line 10"};

  std::unique_ptr<HeldPort> held_;
};

std::vector<std::string> lastLines(const Model& model, std::size_t count) {
  const auto& lines = model.lines();
  return {lines.end() - static_cast<std::ptrdiff_t>(std::min(count, lines.size())), lines.end()};
}

// A service start that failed, with nothing on the port and nothing it started alive, cannot
// come up: the launcher says so after the first probe instead of 90 s later, and the details
// give the reasons after the output: the exit status, who holds the port, the log's last lines.
TEST_F(ModelEnvBasePort, GivesUpAtOnceWhenTheFailedStartLeftNothingRunning) {
  installProduct("echo 'npm: command not found'; exit 127");
  model->check();
  const Delay from = platform().now();
  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(platform().now() - from, Delay(0));
  EXPECT_EQ(model->failure(), "服务没能起来。日志在 " + home() + "/app/.zorvel/logs/monitor.log。");
  std::vector<std::string> expected{"npm: command not found", "启动命令没有成功，退出码 127。",
                                    "端口 5199 上没有程序在听。"};
  expected.insert(expected.end(), logTail_.begin(), logTail_.end());
  expected.push_back("最后一次探测：端口 5199 上还没有程序在听。");
  EXPECT_THAT(lastLines(*model, expected.size()), ElementsAreArray(expected));
}

// While a process the failed start left behind lives (a server still starting), the probe
// keeps going: once the server answers, it is opened; once nothing is left, the launcher gives
// up at the next probe.
TEST_F(ModelEnvBasePort, KeepsWaitingWhileWhatTheFailedStartLeftLives) {
  for (bool serverComesUp : {false, true}) {
    fresh();
    installProduct("setsid sleep 1000 </dev/null >/dev/null 2>&1 & echo $! > '" + record() +
                   "/left'; exit 1");
    model->check();
    ASSERT_TRUE(probeTimes(5));
    EXPECT_EQ(model->phase(), Phase::working);
    const pid_t left = std::stoi(readFile(record() + "/left"));
    if (serverComesUp)
      answer();
    else
      kill(left, SIGKILL);
    ASSERT_TRUE(eventually([&] { return serverComesUp || isGone(left); }));
    expectDecidedByTheNextProbe(serverComesUp);
    if (serverComesUp) kill(left, SIGKILL);
  }
}

// Something listening on the port without answering yet may be the product's server starting:
// the probe keeps going after a failed start that left nothing running.
TEST_F(ModelEnvBasePort, KeepsWaitingWhileSomethingListensOnThePort) {
  installProduct("exit 1");
  listenOnly();  // connections wait in its queue unanswered, until each probe's 3 s limit
  model->check();
  ASSERT_TRUE(probeTimes(2));
  EXPECT_EQ(model->phase(), Phase::working);
  answer();
  expectDecidedByTheNextProbe(true);
}

// A start that exits 0 may leave the services to something else: the probe runs its full
// course, and the details then hold who holds the port and the log, but no exit status.
TEST_F(ModelEnvBasePort, WaitsTheWholeCourseAfterAStartThatSucceeded) {
  installProduct("exit 0");
  model->check();
  const Delay from = platform().now();
  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(platform().now() - from, std::chrono::seconds(90));
  std::vector<std::string> expected{"端口 5199 上没有程序在听。"};
  expected.insert(expected.end(), logTail_.begin(), logTail_.end());
  expected.push_back("最后一次探测：端口 5199 上还没有程序在听。");
  EXPECT_THAT(std::vector<std::string>(model->lines().begin(), model->lines().end()),
              ElementsAreArray(expected));
}

}  // namespace
}  // namespace kestravine::testing
