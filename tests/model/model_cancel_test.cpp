#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/model_fixture.h"
#include "support/processes.h"
#include "support/test_server.h"

namespace kestravine {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using testing::ModelTest;
using testing::server;
using Field = Model::Field;
using Phase = Model::Phase;

constexpr const char* kCancelled = "停下了。什么都没改坏，再点一次可以重来。";

// Cancel, retry and the window's close, against runs whose processes trap SIGTERM; a probe, if
// one ran, would be answered and seen.
class CancelTest : public ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    server().serve([](int) { return 200; });
  }
  void expectCancelled() {
    EXPECT_EQ(model->phase(), Phase::failed);
    EXPECT_EQ(model->failure(), kCancelled);
    EXPECT_FALSE(model->canCancel());
  }
  void close() {
    model->close([this] { closed = true; });
  }
  bool closed = false;
};

// Install and service start alike: the whole tree stops (what traps SIGTERM 10 s later), the
// fields change in their order, the output so far stays, and the late exit starts nothing.
TEST_F(CancelTest, CancelStopsTheTreeAndItsLateExitStartsNothing) {
  for (bool install : {true, false}) {
    SetUp();
    model = Model::create();
    const std::string command = "echo started; exec " + helper("tree t tn/tn");
    install ? writeInstallScript(command) : installProduct(command);
    install ? model->install() : model->check();
    ASSERT_TRUE(runUntil([&] { return model->lines().size() == 6; }));
    std::vector<Field> seen;
    model->addListener([&](Field f) { seen.push_back(f); });
    model->cancel();
    EXPECT_EQ(seen, (std::vector<Field>{Field::canCancel, Field::failure, Field::phase}));
    expectCancelled();
    EXPECT_THAT(model->lines(), Contains("started"));
    clock().advance(std::chrono::seconds(10));
    EXPECT_TRUE(testing::waitForNoMarkedProcess().empty());
    settle();
    expectCancelled();
    EXPECT_EQ(server().requests(), 0);
    EXPECT_EQ(opened(), 0);
  }
}

TEST_F(CancelTest, LinesOfTheStoppingProcessStillArriveAndRetryOffersTheInstall) {
  writeInstallScript(
      "trap 'echo stopping; exit 0' TERM; echo started; while :; do sleep 0.05; done");
  model->check();
  model->install();
  ASSERT_TRUE(runUntil([&] { return !model->lines().empty(); }));
  model->cancel();
  ASSERT_TRUE(runUntil([&] { return model->status() == "stopping"; }));
  EXPECT_TRUE(testing::waitForNoMarkedProcess().empty());
  settle();
  expectCancelled();  // its exit 0 led to no probe
  EXPECT_EQ(server().requests(), 0);

  model->retry();
  EXPECT_EQ(model->phase(), Phase::ready);
  EXPECT_EQ(model->headline(), "Kestravine会装在这台 Mac 上");
  EXPECT_EQ(model->failure(), "");
  EXPECT_TRUE(model->lines().empty());
  EXPECT_EQ(model->status(), "stopping");
}

// The first run exits 0 only after the second has started: its exit neither starts a probe nor
// ends the second run's cancel offer.
TEST_F(CancelTest, LateExitOfACancelledRunDoesNotDisturbANewInstall) {
  writeInstallScript(
      "trap 'echo first stopping; sleep 0.3; exit 0' TERM; echo first; "
      "while :; do sleep 0.05; done");
  model->install();
  ASSERT_TRUE(runUntil([&] { return !model->lines().empty(); }));
  model->cancel();
  model->retry();
  writeInstallScript("echo second; exec sleep 1000");
  model->install();
  ASSERT_TRUE(runUntil([&] { return model->status() == "first stopping"; }));
  ASSERT_TRUE(runUntil([&] { return testing::markedProcesses().size() == 1; }));  // "second"
  settle();
  EXPECT_EQ(model->phase(), Phase::working);
  EXPECT_TRUE(model->canCancel());
  EXPECT_EQ(server().requests(), 0);
  model->cancel();
}

// A cancel, retry and quick install that succeeds: the launcher ends only once the SIGKILL of
// the cancelled tree, due 10 s after the cancel, has been sent.
TEST_F(CancelTest, QuittingWaitsForAPendingKill) {
  writeInstallScript("echo started; exec " + helper("tree t ''"));
  model->install();
  ASSERT_TRUE(runUntil([&] { return model->lines().size() == 2; }));
  const Delay cancelledAt = clock().now();
  model->cancel();
  model->retry();
  writeInstallScript("exit 0");
  model->install();
  ASSERT_TRUE(runUntil([&] { return model->status() == "打开了。"; }));
  clock().advance(std::chrono::seconds(1));
  EXPECT_EQ(quits(), 0);
  clock().advance(cancelledAt + std::chrono::seconds(10) - clock().now());
  EXPECT_EQ(quits(), 1);
  EXPECT_EQ(clock().quitAt() - cancelledAt, std::chrono::seconds(10));
}

// The window closed while a command runs: it runs to its end with its output read (more than a
// pipe holds) and dropped, and then nothing follows it; the close is done at its exit.
TEST_F(CancelTest, ClosedWindowLetsTheCommandFinishAndStartsNothing) {
  for (const auto& [install, status] : {std::pair{true, 0}, {true, 3}, {false, 0}}) {
    SetUp();
    closed = false;
    model = Model::create();
    ASSERT_EQ(mkfifo((record() + "/gate").c_str(), 0600), 0);
    const std::string command = "echo before; read -r _ < '" + record() + "/gate'; seq 100000; " +
                                "(read -r _ < '" + record() + "/gate'; echo late) & exit " +
                                std::to_string(status);
    install ? writeInstallScript(command) : installProduct(command);
    install ? model->install() : model->check();
    ASSERT_TRUE(runUntil([&] { return !model->lines().empty(); }));
    close();
    clock().runUntil([] { return true; });
    EXPECT_FALSE(closed);
    writeFile(record() + "/gate", "go\n");
    // Done at the command's exit, while its background process still holds the output.
    ASSERT_TRUE(runUntil([&] { return closed; }));
    EXPECT_EQ(testing::markedProcesses().size(), 1u);
    writeFile(record() + "/gate", "go\n");
    settle();
    EXPECT_THAT(model->lines(), ElementsAre("before"));
    EXPECT_EQ(model->phase(), Phase::working);
    EXPECT_EQ(server().requests(), 0);
    EXPECT_EQ(quits(), 0);
  }
}

TEST_F(CancelTest, ClosedWindowWithNothingRunningIsDoneAtOnceUnlessAKillIsDue) {
  model->check();
  close();
  EXPECT_FALSE(closed);  // never from inside the call
  ASSERT_TRUE(runUntil([&] { return closed; }));

  for (bool probing : {false, true}) {
    SetUp();
    closed = false;
    model = Model::create();
    server().refuse();
    writeInstallScript(probing ? "exit 0" : "echo started; exec " + helper("tree t ''"));
    model->install();
    if (probing) {
      ASSERT_TRUE(runUntil([&] { return !model->canCancel(); }));
    } else {
      ASSERT_TRUE(runUntil([&] { return model->lines().size() == 2; }));
      model->cancel();
    }
    close();
    clock().runUntil([] { return true; });
    clock().advance(std::chrono::milliseconds(9999));
    EXPECT_EQ(closed, probing);
    clock().advance(std::chrono::milliseconds(1));
    ASSERT_TRUE(runUntil([&] { return closed; }));
    EXPECT_TRUE(testing::waitForNoMarkedProcess().empty());
    settle();
    EXPECT_EQ(clock().pendingMainTimers(), 0u);  // a closed window's probe chain ends
    EXPECT_EQ(quits(), 0);
  }
}

}  // namespace
}  // namespace kestravine
