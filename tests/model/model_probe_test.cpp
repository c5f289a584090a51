#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/model_fixture.h"
#include "support/processes.h"
#include "support/test_server.h"

namespace kestravine {
namespace {

using testing::ModelTest;
using testing::server;

class ProbeTest : public ModelTest {
 protected:
  // An install that succeeds at once, so that the probe starts.
  void installAndSucceed() {
    writeInstallScript("exit 0");
    model->install();
    ASSERT_TRUE(runUntil([&] { return !model->canCancel(); }));
  }
};

TEST_F(ProbeTest, ErrorStatusesAndStallsAreNotReadyRedirectsAre) {
  // The first answer, then 200; a stalled answer ends at the probe's 3 s limit.
  const std::pair<int, bool> table[] = {{404, false}, {500, false}, {0, false}, {302, true}};
  for (const auto& [first, ready] : table) {
    SetUp();
    model = Model::create();
    server().serve([first = first](int n) { return n == 1 ? first : 200; });
    installAndSucceed();
    ASSERT_TRUE(runToEnd());
    EXPECT_EQ(server().requests(), ready ? 1 : 2) << first;
    EXPECT_EQ(model->status(), "打开了。");
  }
}

TEST_F(ProbeTest, GivesUpAfterFortyFiveProbesNamingTheLogFile) {
  installAndSucceed();
  const Delay probingFrom = clock().now();
  ASSERT_TRUE(runToEnd());
  // 45 probes, each followed by a pause of 2 s; the 46th attempt fails without probing.
  EXPECT_EQ(clock().now() - probingFrom, std::chrono::seconds(90));
  EXPECT_EQ(server().requests(), 45);
  EXPECT_EQ(model->failure(), "服务没能起来。日志在 " + home() + "/app/.zorvel/logs/monitor.log。");
  EXPECT_EQ(quits(), 0);
}

TEST_F(ProbeTest, CancelDoesNotStopTheChainButReleasingTheModelDoes) {
  server().serve([](int) { return 200; });
  installAndSucceed();
  model->cancel();
  ASSERT_TRUE(runUntil([&] { return model->status() == "打开了。"; }));
  clock().advance(std::chrono::seconds(1));
  EXPECT_EQ(quits(), 1);

  SetUp();
  model = Model::create();
  installAndSucceed();
  model.reset();  // while the first probe runs
  EXPECT_TRUE(testing::waitForNoMarkedProcess().empty());
  settle();
  clock().advance(std::chrono::seconds(10));
  EXPECT_EQ(server().requests(), 1);
  EXPECT_EQ(quits(), 0);
}

TEST_F(ProbeTest, UsersProxySettingsNeverStandBetweenProbeAndApplication) {
  // A proxy that refuses every connection: bound, never listening.
  const int proxy = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(proxy, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  socklen_t length = sizeof address;
  getsockname(proxy, reinterpret_cast<sockaddr*>(&address), &length);
  const std::string dead = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  const std::string curlHome = std::string(TEST_SCRATCH) + "/curl-home";
  // A curlrc that names the dead proxy, and sends every connection to the dead port anyway.
  writeFile(curlHome + "/.curlrc",
            "proxy = \"" + dead + "\"\nconnect-to = \"::" + dead.substr(7) + "\"\n");
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

}  // namespace
}  // namespace kestravine
