#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "env/ctx.h"
#include "support/model_fixture.h"
#include "support/processes.h"
#include "support/test_server.h"

namespace kestravine {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using testing::ModelTest;
using ::testing::Not;
using testing::server;
using Field = Model::Field;
using Phase = Model::Phase;

std::string failureText(int status) {
  return "没能装完（退出码 " + std::to_string(status) +
         "）。多半是网络，或者这台 Mac 上已经有一份在跑。再试一次；不行就把下面的详情发给我。";
}

TEST_F(ModelTest, InstallRunsTheScriptAndAFailureKeepsItsLines) {
  writeInstallScript("printf '  \\e[32mfetching\\e[0m\\nfetching\\n'; exit 2");
  model->check();
  std::vector<Field> seen;
  model->addListener([&](Field f) { seen.push_back(f); });
  setenv("KESTRAVINE_HOME", "/changed", 1);  // the script gets the value the launcher started with
  model->install();
  setenv("KESTRAVINE_HOME", home().c_str(), 1);
  EXPECT_EQ(seen,
            (std::vector<Field>{Field::phase, Field::canCancel, Field::status, Field::lines}));
  EXPECT_EQ(model->phase(), Phase::working);
  EXPECT_EQ(model->status(), "在装，第一次要几分钟。");
  EXPECT_EQ(model->headline(), "Kestravine会装在这台 Mac 上");

  seen.clear();
  ASSERT_TRUE(runToEnd());
  ASSERT_TRUE(runUntil([&] { return model->lines().size() == 2; }));  // no order with the exit
  EXPECT_EQ(model->failure(), failureText(2));
  EXPECT_FALSE(model->canCancel());
  EXPECT_THAT(model->lines(), ElementsAre("fetching", "fetching"));  // equal lines both kept
  EXPECT_EQ(model->status(), "fetching");
  const std::vector<Field> failing{Field::failure, Field::phase, Field::canCancel};
  EXPECT_NE(std::search(seen.begin(), seen.end(), failing.begin(), failing.end()), seen.end());

  const auto env = readLines(record() + "/env");
  EXPECT_THAT(env, Contains("KESTRAVINE_NO_OPEN=1"));
  EXPECT_THAT(env, Contains("ZORVEL_PORT_OFFSET=" + std::to_string(Ctx::portOffset())));
  EXPECT_THAT(env, Contains("KESTRAVINE_HOME=" + home()));
  EXPECT_THAT(env, Contains("PATH=" + home() + "/node/bin:" + std::getenv("PATH")));
  EXPECT_THAT(env, Not(Contains(::testing::StartsWith("KESTRAVINE_SKIP_ATTEST="))));

  model->install();  // a new install starts without the old lines
  EXPECT_TRUE(model->lines().empty());
  ASSERT_TRUE(runToEnd());
}

// The tarball that sorts first (by code point after canonical normalisation) is the one.
TEST_F(ModelTest, InstallTakesTheTarballThatSortsFirst) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> table = {
      {{"kestravine-1.9.0.tar.gz", "kestravine-1.10.0.tar.gz"}, "kestravine-1.10.0.tar.gz"},
      // "e" + combining acute is "é" once normalised, and "é." sorts before "éx".
      {{"kestravine-e\u0301x.tar.gz", "kestravine-\u00e9.tar.gz"}, "kestravine-\u00e9.tar.gz"},
      {{"Kestravine-0.tar.gz", "kestravine-9.tgz", "kestravine-5.tar.gz"}, "kestravine-5.tar.gz"},
  };
  for (const auto& [names, expected] : table) {
    SetUp();
    writeInstallScript("exit 1");
    std::filesystem::remove(resources() + "/kestravine-2.0.1.tar.gz");
    for (const auto& name : names) writeFile(resources() + "/" + name, "");
    model = Model::create();
    model->install();
    ASSERT_TRUE(runToEnd());
    EXPECT_THAT(readLines(record() + "/args"),
                ElementsAre(resources() + "/install.sh", "--from", resources() + "/" + expected));
  }
}

TEST_F(ModelTest, MissingInstallationFilesStartNothing) {
  const std::vector<std::pair<std::vector<std::string>, bool>> table = {
      {{"Kestravine-2.0.1.tar.gz", "install.sh"}, true},
      {{"kestravine-2.0.1.tgz", "install.sh"}, true},
      {{"kestravine-2.0.1.tar.gz"}, true},
      {{"kestravine-2.0.1.gz", "kestravine.tar.gz", "install.sh"}, true},
      {{}, false},  // no resource directory at all
  };
  for (const auto& [names, directory] : table) {
    std::filesystem::remove_all(resources());
    if (directory) std::filesystem::create_directories(resources());
    for (const auto& name : names) writeFile(resources() + "/" + name, "exit 0");
    auto m = Model::create();
    m->install();
    EXPECT_EQ(m->phase(), Phase::failed) << names.size();
    EXPECT_EQ(m->failure(), "这个 dmg 里少了安装文件。重新下载一份吧。");
    EXPECT_EQ(m->status(), "");
    EXPECT_TRUE(testing::markedProcesses().empty());
  }
}

TEST_F(ModelTest, KeepsTheLastFourHundredLines) {
  writeInstallScript("seq 1000; exit 4");
  model->install();
  ASSERT_TRUE(runToEnd());
  ASSERT_TRUE(runUntil([&] { return model->status() == "1000"; }));
  ASSERT_EQ(model->lines().size(), 400u);
  EXPECT_EQ(model->lines().front(), "601");
  EXPECT_EQ(model->linesAppended(), 1000u);
}

TEST_F(ModelTest, SuccessfulInstallProbesUntilTheApplicationAnswersThenOpensAndQuits) {
  writeInstallScript("echo installed; exit 0");
  server().serve([](int n) { return n < 3 ? 503 : 200; });
  model->install();
  ASSERT_TRUE(runUntil([&] { return !model->canCancel(); }));
  const auto probingFrom = clock().now();
  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(server().requests(), 3);
  EXPECT_EQ(server().otherRequests(), 0);
  EXPECT_EQ(model->status(), "打开了。");
  ASSERT_EQ(opened(), 1);
  EXPECT_EQ(clock().openedUrls().back(),
            "http://127.0.0.1:" + std::to_string(5199 + Ctx::portOffset()) + "/home/");
  EXPECT_EQ(clock().openedAt() - probingFrom, std::chrono::seconds(4));  // two pauses of 2 s
  EXPECT_EQ(clock().quitAt() - clock().openedAt(), std::chrono::milliseconds(800));
  EXPECT_EQ(quits(), 1);
}

}  // namespace
}  // namespace kestravine
