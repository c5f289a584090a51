#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child_run.h"
#include "support/http_server.h"
#include "support/model_fixture.h"

namespace kestravine {
namespace {

using ::testing::Contains;
using testing::ModelTest;
using testing::server;
using Phase = Model::Phase;

constexpr const char* kCancelled = "停下了。什么都没改坏，再点一次可以重来。";

class CancelTest : public ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    writeFile(resources() + "/kestravine-2.0.1.tar.gz", "");
    server().serve([](int) { return 200; });  // a probe, if one ran, would be seen here
  }
  void expectCancelled() {
    EXPECT_EQ(model->phase(), Phase::failed);
    EXPECT_EQ(model->failure(), kCancelled);
    EXPECT_FALSE(model->canCancel());
  }
  // The helper program as a command a script can run.
  static std::string helperCommand(const std::string& args) {
    return std::string("'") + TEST_HELPER + "' " + args;
  }
};

TEST_F(CancelTest, CancelDuringInstallStopsTheTreeAndIgnoresTheLateExit) {
  // The script's command traps SIGTERM, with trapping and normal processes below it.
  writeInstallScript("echo started; exec " + helperCommand("tree t tn/tn"));
  model->install();
  ASSERT_TRUE(runUntil([&] { return model->lines().size() == 6; }));
  model->cancel();
  expectCancelled();
  EXPECT_THAT(model->lines(), Contains("started"));  // the output so far stays

  clock().advance(std::chrono::seconds(10));  // SIGKILL for what ignored SIGTERM
  ASSERT_TRUE(runUntil([] { return testing::liveDescendants().empty(); }));
  settle();
  expectCancelled();
  EXPECT_EQ(server().requests(), 0);
  EXPECT_EQ(clock().pendingMainTimers(), 0u);
}

TEST_F(CancelTest, CancelDuringServiceStartStartsNoProbe) {
  installProduct("echo up; exec sleep 1000");
  model->check();
  ASSERT_TRUE(runUntil([&] { return !model->lines().empty(); }));
  model->cancel();
  expectCancelled();
  ASSERT_TRUE(runUntil([] { return testing::liveDescendants().empty(); }));
  settle();
  expectCancelled();
  EXPECT_EQ(server().requests(), 0);
  EXPECT_TRUE(clock().openedUrls().empty());
}

TEST_F(CancelTest, LinesOfTheStoppingProcessStillArrive) {
  writeInstallScript(
      "trap 'echo stopping; exit 0' TERM; echo started; while :; do sleep 0.05; done");
  model->install();
  ASSERT_TRUE(runUntil([&] { return !model->lines().empty(); }));
  model->cancel();
  ASSERT_TRUE(runUntil([&] { return model->status() == "stopping"; }));
  expectCancelled();  // its exit 0 does not lead to the probe
  ASSERT_TRUE(runUntil([] { return testing::liveDescendants().empty(); }));
  settle();
  EXPECT_EQ(server().requests(), 0);
}

TEST_F(CancelTest, RetryReturnsToTheInstallOffer) {
  writeInstallScript("echo started; exec sleep 1000");
  model->check();
  model->install();
  ASSERT_TRUE(runUntil([&] { return !model->lines().empty(); }));
  model->cancel();
  const std::string status = model->status();
  model->retry();
  EXPECT_EQ(model->phase(), Phase::ready);
  EXPECT_EQ(model->headline(), "Kestravine会装在这台 Mac 上");
  EXPECT_EQ(model->failure(), "");
  EXPECT_TRUE(model->lines().empty());
  EXPECT_EQ(model->status(), status);
  EXPECT_FALSE(model->canCancel());
}

// The first run exits 0 only after the second has started: its exit must not start a probe
// nor end the second run's cancel offer.
TEST_F(CancelTest, LateExitOfACancelledRunDoesNotDisturbANewInstall) {
  const std::string firstPid = record() + "/first.pid";
  writeInstallScript("trap 'echo first stopping; sleep 0.3; exit 0' TERM; echo $$ > '" + firstPid +
                     "'; echo first; while :; do sleep 0.05; done");
  model->install();
  ASSERT_TRUE(runUntil([&] { return !model->lines().empty(); }));
  model->cancel();
  model->retry();
  writeInstallScript("echo second; exec sleep 1000");
  model->install();
  ASSERT_TRUE(runUntil([&] {
    const auto& l = model->lines();
    return std::find(l.begin(), l.end(), "first stopping") != l.end() &&
           std::find(l.begin(), l.end(), "second") != l.end();
  }));
  const pid_t first = std::stoi(readFile(firstPid));
  ASSERT_TRUE(runUntil([&] { return testing::isGone(first); }));
  settle();
  EXPECT_EQ(model->phase(), Phase::working);
  EXPECT_TRUE(model->canCancel());
  EXPECT_EQ(server().requests(), 0);
  model->cancel();
}

}  // namespace
}  // namespace kestravine
