#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "env/ctx.h"
#include "support/http_server.h"
#include "support/model_fixture.h"

namespace kestravine {
namespace {

using ::testing::ElementsAre;
using testing::ModelTest;
using testing::server;
using Phase = Model::Phase;

std::string failureText(int status) {
  return "没能装完（退出码 " + std::to_string(status) +
         "）。多半是网络，或者这台 Mac 上已经有一份在跑。再试一次；不行就把下面的详情发给我。";
}

TEST_F(ModelTest, InstallRunsTheScriptOnTheTarballThatSortsFirst) {
  writeFile(resources() + "/kestravine-1.9.0.tar.gz", "");
  writeFile(resources() + "/kestravine-1.10.0.tar.gz", "");
  writeInstallScript("printf '  \\e[32mfetching\\e[0m\\nfetching\\n'; exit 2");
  model->check();
  model->install();
  EXPECT_EQ(model->phase(), Phase::working);
  EXPECT_TRUE(model->canCancel());
  EXPECT_EQ(model->status(), "在装，第一次要几分钟。");
  EXPECT_TRUE(model->lines().empty());
  EXPECT_EQ(model->headline(), "Kestravine会装在这台 Mac 上");

  // Lines and the exit report come in no fixed order: wait for both.
  ASSERT_TRUE(runToEnd());
  ASSERT_TRUE(runUntil([&] { return model->lines().size() == 2; }));
  EXPECT_THAT(readLines(record() + "/args"),
              ElementsAre(resources() + "/install.sh", "--from",
                          resources() + "/kestravine-1.10.0.tar.gz"));
  EXPECT_EQ(model->phase(), Phase::failed);
  EXPECT_EQ(model->failure(), failureText(2));
  EXPECT_FALSE(model->canCancel());
  EXPECT_THAT(model->lines(), ElementsAre("fetching", "fetching"));  // equal lines both kept
  EXPECT_EQ(model->status(), "fetching");
}

TEST_F(ModelTest, InstallScriptSeesTheProductEnvironment) {
  writeFile(resources() + "/kestravine-2.0.1.tar.gz", "");
  writeInstallScript("exit 1");
  model->install();
  ASSERT_TRUE(runToEnd());
  const auto env = readLines(record() + "/env");
  auto has = [&](const std::string& entry) {
    return std::find(env.begin(), env.end(), entry) != env.end();
  };
  EXPECT_TRUE(has("KESTRAVINE_NO_OPEN=1"));
  EXPECT_TRUE(has("ZORVEL_PORT_OFFSET=" + std::to_string(Ctx::portOffset())));
  EXPECT_TRUE(has("KESTRAVINE_HOME=" + home()));
  for (const auto& entry : env) EXPECT_FALSE(entry.starts_with("KESTRAVINE_SKIP_ATTEST="));
  auto path = std::find_if(env.begin(), env.end(), [](auto& e) { return e.starts_with("PATH="); });
  ASSERT_NE(path, env.end());
  EXPECT_TRUE(path->starts_with("PATH=" + home() + "/node/bin:")) << *path;
}

TEST_F(ModelTest, MissingInstallationFilesStartNothing) {
  struct Case {
    const char* what;
    std::vector<std::string> files;
    bool resourceDirExists;
  };
  const Case table[] = {
      {"capital K", {"Kestravine-2.0.1.tar.gz", "install.sh"}, true},
      {"tgz", {"kestravine-2.0.1.tgz", "install.sh"}, true},
      {"no install.sh", {"kestravine-2.0.1.tar.gz"}, true},
      {"nothing", {}, true},
      {"no resource directory", {}, false},
  };
  for (const auto& c : table) {
    std::filesystem::remove_all(resources());
    if (c.resourceDirExists) std::filesystem::create_directories(resources());
    for (const auto& name : c.files) writeFile(resources() + "/" + name, "exit 0");
    auto m = Model::create();
    m->check();
    m->install();
    EXPECT_EQ(m->phase(), Phase::failed) << c.what;
    EXPECT_EQ(m->failure(), "这个 dmg 里少了安装文件。重新下载一份吧。") << c.what;
    EXPECT_EQ(m->status(), "") << c.what;
    EXPECT_FALSE(m->canCancel()) << c.what;
    EXPECT_TRUE(testing::liveDescendants().empty()) << c.what;
  }
}

TEST_F(ModelTest, DirectoryNamedInstallShRunsAndFailsInBash) {
  writeFile(resources() + "/kestravine-2.0.1.tar.gz", "");
  std::filesystem::create_directories(resources() + "/install.sh");
  model->install();
  EXPECT_EQ(model->phase(), Phase::working);
  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(model->failure(), failureText(126));
  EXPECT_TRUE(runUntil([&] { return !model->lines().empty(); }));  // bash says why
}

TEST_F(ModelTest, KeepsTheLastFourHundredOfAMillionLines) {
  writeFile(resources() + "/kestravine-2.0.1.tar.gz", "");
  writeInstallScript(std::string("'") + TEST_HELPER + "' flood 1000000 colour; exit 4");
  model->install();
  ASSERT_TRUE(runToEnd());
  ASSERT_TRUE(runUntil([&] { return model->status() == "INFO step 999999 done"; }));
  EXPECT_EQ(model->failure(), failureText(4));
  ASSERT_EQ(model->lines().size(), 400u);
  EXPECT_EQ(model->lines().front(), "INFO step 999600 done");
}

TEST_F(ModelTest, SuccessfulInstallProbesUntilTheApplicationAnswersThenOpensAndQuits) {
  writeFile(resources() + "/kestravine-2.0.1.tar.gz", "");
  writeInstallScript("echo installed; exit 0");
  server().serve([](int n) { return n < 3 ? 503 : 200; });
  model->install();
  ASSERT_TRUE(runUntil([&] { return !model->canCancel(); }));
  EXPECT_EQ(model->phase(), Phase::working);
  const auto probingFrom = clock().now();

  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(server().requests(), 3);
  EXPECT_EQ(model->status(), "打开了。");
  EXPECT_FALSE(model->canCancel());
  const std::string address =
      "http://127.0.0.1:" + std::to_string(5199 + Ctx::portOffset()) + "/home/";
  ASSERT_FALSE(clock().openedUrls().empty());
  EXPECT_EQ(clock().openedUrls().back(), address);
  EXPECT_EQ(clock().openedAt() - probingFrom, std::chrono::seconds(4));  // two pauses
  EXPECT_EQ(clock().quitAt() - clock().openedAt(), std::chrono::milliseconds(800));
  EXPECT_EQ(quits(), 1);
}

}  // namespace
}  // namespace kestravine
