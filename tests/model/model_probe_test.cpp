#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

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

TEST_F(ProbeTest, UsersProxySettingsNeverStandBetweenProbeAndApplication) {
  // A proxy that refuses every connection, bound but not listening.
  const int proxy = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(proxy, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  socklen_t length = sizeof address;
  getsockname(proxy, reinterpret_cast<sockaddr*>(&address), &length);
  const std::string dead = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));

  const std::string curlHome = std::string(TEST_SCRATCH) + "/curl-home";
  writeFile(curlHome + "/.curlrc", "proxy = \"" + dead + "\"\n");
  const std::string ownHome = std::getenv("HOME");
  const std::pair<const char*, std::string> table[] = {
      {"http_proxy", dead}, {"all_proxy", dead}, {"ALL_PROXY", dead}, {"HOME", curlHome}};
  for (const auto& [name, value] : table) {
    SetUp();
    model = Model::create();
    server().serve([](int) { return 200; });
    setenv(name, value.c_str(), 1);
    installAndSucceed();
    ASSERT_TRUE(runToEnd());
    name == std::string("HOME") ? setenv("HOME", ownHome.c_str(), 1) : unsetenv(name);
    EXPECT_EQ(quits(), 1) << name;
    EXPECT_EQ(server().requests(), 1) << name;
  }
  close(proxy);
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
