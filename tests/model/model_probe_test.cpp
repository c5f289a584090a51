#include <gtest/gtest.h>

#include "env/ctx.h"
#include "support/http_server.h"
#include "support/model_fixture.h"

namespace kestravine {
namespace {

using testing::ModelTest;
using testing::server;
using Phase = Model::Phase;

class ProbeTest : public ModelTest {
 protected:
  // An install that succeeds at once, so the probe starts.
  void installAndSucceed() {
    writeFile(resources() + "/kestravine-2.0.1.tar.gz", "");
    writeInstallScript("exit 0");
    model->install();
    ASSERT_TRUE(runUntil([&] { return !model->canCancel(); }));
    probingFrom = clock().now();
  }
  Delay probingFrom{0};
};

TEST_F(ProbeTest, HttpErrorsAreNotReadyAndRedirectsAre) {
  const std::pair<int, bool> table[] = {{404, false}, {500, false}, {302, true}, {200, true}};
  for (const auto& [status, ready] : table) {
    SetUp();
    model = Model::create();
    server().serve([status = status](int n) { return n == 1 ? status : 200; });
    installAndSucceed();
    ASSERT_TRUE(runToEnd());
    EXPECT_EQ(server().requests(), ready ? 1 : 2) << status;
    EXPECT_EQ(model->status(), "打开了。");
  }
}

TEST_F(ProbeTest, GivesUpAfterFortyFiveProbesNamingTheLogFile) {
  installAndSucceed();  // nothing listens on the port: every probe is refused
  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(model->phase(), Phase::failed);
  EXPECT_EQ(model->failure(), "服务没能起来。日志在 " + home() + "/app/.zorvel/logs/monitor.log。");
  // 45 probes, each followed by a 2-second pause; the 46th attempt fails without probing.
  EXPECT_EQ(clock().now() - probingFrom, std::chrono::seconds(90));
  EXPECT_EQ(clock().pendingMainTimers(), 0u);
  EXPECT_EQ(quits(), 0);
}

TEST_F(ProbeTest, ReleasedModelEndsTheChainSilently) {
  installAndSucceed();
  model.reset();
  ASSERT_TRUE(runUntil([] { return testing::liveDescendants().empty(); }));
  clock().advance(std::chrono::seconds(2));  // a retry scheduled before would hold the model
  server().serve([](int) { return 200; });
  ASSERT_TRUE(runUntil([] { return testing::liveDescendants().empty(); }));
  clock().advance(std::chrono::seconds(10));
  EXPECT_EQ(server().requests(), 0);
  EXPECT_EQ(quits(), 0);
}

TEST_F(ProbeTest, CancelDoesNotStopTheProbe) {
  server().serve([](int n) { return n < 2 ? 500 : 200; });
  installAndSucceed();
  model->cancel();
  EXPECT_EQ(model->phase(), Phase::failed);
  ASSERT_TRUE(runUntil([&] { return clock().pendingMainTimers() > 0; }));
  clock().advanceToNextTimer();
  ASSERT_TRUE(runUntil([&] { return model->status() == "打开了。"; }));
  EXPECT_EQ(server().requests(), 2);
}

}  // namespace
}  // namespace kestravine
