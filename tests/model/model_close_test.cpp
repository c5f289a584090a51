#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/http_server.h"
#include "support/model_fixture.h"

namespace kestravine {
namespace {

using ::testing::ElementsAre;
using testing::ModelTest;
using testing::server;
using Phase = Model::Phase;

// The window closed while the flow runs.
class CloseTest : public ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    writeFile(resources() + "/kestravine-2.0.1.tar.gz", "");
    server().serve([](int) { return 200; });  // a probe, if one ran, would be seen here
    for (const char* name : {"/gate", "/gate2"})
      ASSERT_EQ(mkfifo((record() + name).c_str(), 0600), 0);
  }
  void close() {
    model->close([this] { closed = true; });
  }
  // Lets a script waiting on the FIFO `name` in record() go on.
  void open(const char* name) { writeFile(record() + name, "go\n"); }
  // A command that prints a line, waits at the gate, then floods more than a pipe holds.
  std::string waitingCommand(int status) {
    return "echo before; read -r _ < '" + record() + "/gate'; seq 100000; echo > '" + record() +
           "/finished'; exit " + std::to_string(status);
  }
  bool closed = false;
};

TEST_F(CloseTest, RunningCommandRunsToItsEndAndNothingFollowsIt) {
  struct Case {
    bool install;
    int status;
  };
  for (const Case c : {Case{true, 0}, Case{true, 3}, Case{false, 0}}) {
    SetUp();
    closed = false;
    model = Model::create();
    if (c.install) {
      writeInstallScript(waitingCommand(c.status));
      model->install();
    } else {
      installProduct(waitingCommand(c.status));
      model->check();
    }
    ASSERT_TRUE(runUntil([&] { return !model->lines().empty(); }));
    close();
    clock().runUntil([] { return true; });
    EXPECT_FALSE(closed);
    open("/gate");
    ASSERT_TRUE(runUntil([&] { return closed; }));
    EXPECT_TRUE(std::filesystem::exists(record() + "/finished"));
    settle();
    // Its output was read, not shown; its exit started no probe and showed no failure.
    EXPECT_THAT(model->lines(), ElementsAre("before"));
    EXPECT_EQ(model->phase(), Phase::working);
    EXPECT_EQ(model->failure(), "");
    EXPECT_EQ(server().requests(), 0);
    EXPECT_EQ(quits(), 0);
  }
}

TEST_F(CloseTest, WaitsForTheCommandNotForWhatItLeftHoldingTheOutput) {
  writeInstallScript("echo before; read -r _ < '" + record() + "/gate'; (read -r _ < '" + record() +
                     "/gate2'; echo late) & exit 0");
  model->install();
  ASSERT_TRUE(runUntil([&] { return !model->lines().empty(); }));
  close();
  open("/gate");
  ASSERT_TRUE(runUntil([&] { return closed; }));
  open("/gate2");  // only now does the background process end
}

TEST_F(CloseTest, WithNothingRunningEndsAtOnceUnlessAKillIsStillDue) {
  model->check();  // nothing installed: the offer, nothing runs
  close();
  EXPECT_FALSE(closed);  // never from inside the call
  ASSERT_TRUE(runUntil([&] { return closed; }));

  // A cancelled install whose command ignores SIGTERM: its SIGKILL comes first.
  SetUp();
  closed = false;
  model = Model::create();
  writeInstallScript("echo before; exec '" + std::string(TEST_HELPER) + "' tree t ''");
  model->install();
  ASSERT_TRUE(runUntil([&] { return model->lines().size() == 2; }));
  model->cancel();
  close();
  clock().advance(std::chrono::milliseconds(9999));
  EXPECT_FALSE(closed);
  clock().advance(std::chrono::milliseconds(1));
  ASSERT_TRUE(runUntil([&] { return closed; }));
}

TEST_F(CloseTest, ProbeChainEndsWithoutOpeningOrQuitting) {
  server().stop();  // refused: each probe fails and would be retried
  writeInstallScript("exit 0");
  model->install();
  ASSERT_TRUE(runUntil([&] { return !model->canCancel(); }));
  close();
  ASSERT_TRUE(runUntil([&] { return closed; }));
  ASSERT_TRUE(runUntil([] { return testing::liveDescendants().empty(); }));  // the probe ended
  settle();
  EXPECT_EQ(clock().pendingMainTimers(), 0u);
  EXPECT_EQ(quits(), 0);
  EXPECT_TRUE(clock().openedUrls().empty());
}

}  // namespace
}  // namespace kestravine
