#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "env/ctx.h"
#include "support/http_server.h"
#include "support/model_fixture.h"

namespace kestravine {
namespace {

using ::testing::Contains;
using testing::ModelTest;
using testing::server;
using Phase = Model::Phase;
using Field = Model::Field;

TEST_F(ModelTest, NewModelIsCheckingAndEmpty) {
  EXPECT_EQ(model->phase(), Phase::checking);
  EXPECT_EQ(model->headline(), "");
  EXPECT_EQ(model->status(), "");
  EXPECT_EQ(model->failure(), "");
  EXPECT_TRUE(model->lines().empty());
  EXPECT_FALSE(model->canCancel());
}

TEST_F(ModelTest, CheckWithoutProductOffersTheInstall) {
  std::vector<Field> seen;
  model->addListener([&](Field f) { seen.push_back(f); });
  model->check();
  EXPECT_EQ(model->headline(), "Kestravine会装在这台 Mac 上");
  EXPECT_EQ(model->phase(), Phase::ready);
  EXPECT_EQ(model->status(), "");
  EXPECT_FALSE(model->canCancel());
  EXPECT_EQ(seen, (std::vector<Field>{Field::headline, Field::phase}));
  EXPECT_TRUE(testing::liveDescendants().empty());
}

// The service start's exit status is not looked at: the probe follows in every case.
TEST_F(ModelTest, InstalledProductStartsServicesThenProbesWhateverTheirStatus) {
  installProduct("pwd > '" + record() + "/pwd'; echo \"$ZORVEL_PORT_OFFSET\" > '" + record() +
                 "/offset'; echo one; echo two; exit 1");
  server().serve([](int) { return 200; });
  model->check();
  EXPECT_EQ(model->headline(), "Varnholt已经在这台 Mac 上了");
  EXPECT_EQ(model->phase(), Phase::working);
  EXPECT_EQ(model->status(), "正在打开Varnholt。");
  EXPECT_TRUE(model->canCancel());

  ASSERT_TRUE(runUntil([&] { return !model->canCancel() && model->status() == "two"; }));
  EXPECT_THAT(model->lines(), Contains("one"));
  EXPECT_THAT(model->lines(), Contains("two"));
  EXPECT_EQ(model->phase(), Phase::working);
  EXPECT_EQ(readFile(record() + "/pwd"), home() + "/app\n");
  EXPECT_EQ(readFile(record() + "/offset"), std::to_string(Ctx::portOffset()) + "\n");

  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(model->status(), "打开了。");
  EXPECT_EQ(server().requests(), 1);
  EXPECT_EQ(quits(), 1);
}

TEST_F(ModelTest, AnyFileNamedAppMeansInstalledAndAFailedStartStillProbes) {
  writeFile(home() + "/app", "not a directory");
  server().serve([](int) { return 200; });
  model->check();
  EXPECT_EQ(model->phase(), Phase::working);
  // bash cannot start in a working directory that is a file.
  ASSERT_TRUE(runUntil([&] { return !model->canCancel(); }));
  EXPECT_THAT(model->lines(), ::testing::ElementsAre("起不来：/bin/bash"));
  EXPECT_EQ(model->status(), "起不来：/bin/bash");
  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(server().requests(), 1);
}

// Debian's /etc/profile sets PATH afresh in the login shell; the product's own npm still wins,
// and the user's own BASH_ENV still runs.
TEST_F(ModelTest, ProductNodeComesFirstInTheLoginShell) {
  writeFile(home() + "/node/bin/npm", "#!/bin/sh\necho \"$*\" > '" + record() + "/npm'\n", true);
  writeFile(record() + "/own-env", "echo ran >> '" + record() + "/own-env-ran'\n");
  std::filesystem::create_directories(home() + "/app");
  server().serve([](int) { return 200; });
  setenv("BASH_ENV", (record() + "/own-env").c_str(), 1);
  model->check();
  unsetenv("BASH_ENV");
  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(readFile(record() + "/npm"), "run -s zorvel:up\n");
  // Every bash the profile files start reads it too, as it would without the launcher.
  EXPECT_TRUE(readFile(record() + "/own-env-ran").starts_with("ran\n"));
}

}  // namespace
}  // namespace kestravine
