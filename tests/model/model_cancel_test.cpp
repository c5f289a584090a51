#include <gmock/gmock.h>
#include <sys/stat.h>

#include "model/readiness_wait.h"
#include "support/model_fixture.h"

namespace kestravine::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using Field = Model::Field;
using Phase = Model::Phase;

// Cancel, retry and the window's close, against runs whose processes trap SIGTERM; a probe, if
// one ran, would be answered 503 and leave the wait's next pause pending.
class CancelTest : public ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    closed = false;
  }
  void expectCancelled() {
    EXPECT_EQ(model->phase(), Phase::failed);
    EXPECT_EQ(model->failure(), "停下了。什么都没改坏，再点一次可以重来。");
    EXPECT_FALSE(model->canCancel());
  }
  void close() {
    model->close([this] { closed = true; });
  }
  bool runUntilClosed() {
    return platform().runUntil([&] { return closed; });
  }
  bool closed = false;
};

// Install and service start alike: the whole tree stops (what traps SIGTERM 10 s later), and so
// does the server the script detached; the fields change in their order, the output so far
// stays, and the late exit starts nothing.
TEST_F(CancelTest, CancelStopsTheTreeAndItsLateExitStartsNothing) {
  for (bool install : {true, false}) {
    fresh();
    start(install,
          "echo started; setsid -f '" TEST_HELPER "' tree t; exec '" TEST_HELPER "' tree t tn/tn",
          7);
    std::vector<Field> seen;
    model->addListener([&](Field f) { seen.push_back(f); });
    model->cancel();
    EXPECT_EQ(seen, (std::vector<Field>{Field::canCancel, Field::failure, Field::phase}));
    expectCancelled();
    EXPECT_THAT(model->lines(), Contains("started"));
    platform().advance(std::chrono::seconds(10));
    EXPECT_TRUE(waitForNoMarkedProcess().empty());
    settle();
    expectCancelled();
    EXPECT_EQ(platform().pendingMainTimers(), 0u);
    if (install) EXPECT_EQ(server::requests(), 0);
  }
}

// The stopping run's lines still arrive; retry offers the install again. The cancelled run exits
// 0 only after a new install has started: that exit neither probes nor ends the new run. The new
// run's success ends the launcher only once the SIGKILL of the cancelled tree, due 10 s after the
// cancel, has been sent.
TEST_F(CancelTest, LateExitOfACancelledRunDisturbsNeitherTheRetryNorTheNewRun) {
  server::serve([](int) { return 200; });
  const std::string late = record() + "/late";
  ASSERT_EQ(mkfifo(late.c_str(), 0600), 0);
  start(true,
        "trap 'echo stopping; read -r _ < \"" + late +
            "\"; exit 0' TERM; echo first; while :; do sleep 0.05; done",
        1);
  const Delay cancelledAt = platform().now();
  model->cancel();
  ASSERT_TRUE(platform().runUntil([&] { return model->status() == "stopping"; }));
  expectCancelled();
  model->retry();
  EXPECT_EQ(model->phase(), Phase::ready);
  EXPECT_EQ(model->headline(), "Kestravine会装在这台电脑上");
  EXPECT_EQ(model->failure(), "");
  EXPECT_TRUE(model->lines().empty());
  EXPECT_EQ(model->status(), "stopping");
  const std::string gate = record() + "/gate";
  ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
  start(true, "echo second; read -r _ < '" + gate + "'", 1);
  writeFile(late, "go\n");  // the cancelled run ends now, while the new one runs
  settle(1);
  EXPECT_EQ(model->phase(), Phase::working);
  EXPECT_TRUE(model->canCancel());
  EXPECT_EQ(server::requests(), 0);

  writeFile(gate, "go\n");
  ASSERT_TRUE(platform().runUntil([&] { return model->status() == "打开了。"; }));
  platform().advance(std::chrono::seconds(1));
  EXPECT_EQ(quits(), 0);
  platform().advance(cancelledAt + std::chrono::seconds(10) - platform().now());
  EXPECT_EQ(platform().quitAt() - cancelledAt, std::chrono::seconds(10));
}

// The window closed while a command runs: it runs to its end with its output read (more than a
// pipe holds) and dropped, and then nothing follows it; the close is done at its exit, while a
// background process still holds the output.
TEST_F(CancelTest, ClosedWindowLetsTheCommandFinishAndStartsNothing) {
  for (const auto& [install, status] : {std::pair{true, 0}, {true, 3}, {false, 0}}) {
    fresh();
    const std::string gate = record() + "/gate";
    ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
    start(install,
          "echo before; read -r _ < '" + gate + "'; seq 100000; (read -r _ < '" + gate +
              "'; echo late) & exit " + std::to_string(status),
          1);
    close();
    platform().runUntil([] { return true; });
    EXPECT_FALSE(closed);
    writeFile(gate, "go\n");
    ASSERT_TRUE(runUntilClosed());
    EXPECT_EQ(markedProcesses().size(), 1u);
    writeFile(gate, "go\n");
    settle();
    EXPECT_THAT(model->lines(), ElementsAre("before"));
    EXPECT_EQ(model->phase(), Phase::working);
    platform().advance(ReadinessWait::kPause);
    settle();
    EXPECT_EQ(platform().pendingMainTimers(), 0u);
    if (install) EXPECT_EQ(server::requests(), 0);
    EXPECT_EQ(quits(), 0);
  }
}

// With nothing running (ready, or probing) the close is done at once, but never inside the
// call; a cancelled tree's SIGKILL, when due, comes first. A closed window's probe chain ends.
TEST_F(CancelTest, ClosedWindowWithNothingRunningIsDoneAtOnceUnlessAKillIsDue) {
  for (const std::string state : {"ready", "probing", "kill due"}) {
    fresh();
    server::serve([](int) { return 503; });
    if (state == "ready") model->check();
    if (state == "probing") start(true, "exit 0");
    if (state == "kill due") start(true, "echo started; exec '" TEST_HELPER "' tree t ''", 2);
    if (state == "kill due") model->cancel();
    close();
    EXPECT_FALSE(closed);
    platform().runUntil([] { return true; });
    platform().advance(std::chrono::milliseconds(9999));
    EXPECT_EQ(closed, state != "kill due") << state;
    platform().advance(std::chrono::milliseconds(1));
    ASSERT_TRUE(runUntilClosed());
    EXPECT_TRUE(waitForNoMarkedProcess().empty());
    settle();
    EXPECT_EQ(platform().pendingMainTimers(), 0u);
    EXPECT_EQ(quits(), 0);
  }
}

}  // namespace
}  // namespace kestravine::testing
