#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "env/ctx.h"
#include "support/model_fixture.h"
#include "support/test_server.h"

namespace kestravine {
namespace {

using ::testing::ElementsAre;
using testing::ModelTest;
using testing::server;
using Field = Model::Field;
using Phase = Model::Phase;

TEST_F(ModelTest, WithoutTheProductTheCheckOffersTheInstall) {
  std::vector<Field> seen;
  model->addListener([&](Field f) { seen.push_back(f); });
  model->check();
  EXPECT_EQ(seen, (std::vector<Field>{Field::headline, Field::phase}));
  EXPECT_EQ(model->headline(), "Kestravine会装在这台 Mac 上");
  EXPECT_EQ(model->phase(), Phase::ready);
  EXPECT_EQ(model->status(), "");
  EXPECT_FALSE(model->canCancel());
}

// The service start: "npm run -s zorvel:up" in a login shell in <home>/app, with the port offset
// and the product's own npm first even after the profile files set PATH afresh (as Debian's
// /etc/profile does; here the user's .bash_profile does it too), and the user's own BASH_ENV
// still run. Whatever its exit status, the probe follows.
TEST_F(ModelTest, ServiceStartRunsTheProductsNpmInALoginShellThenProbes) {
  const std::string user = record() + "/user";
  writeFile(user + "/.bash_profile",
            "echo profile >> '" + record() + "/profile'; PATH=/usr/bin:/bin\n");
  writeFile(user + "/own-env", "echo ran >> '" + record() + "/own-env-ran'\n");
  writeFile(home() + "/node/bin/npm",
            "#!/bin/sh\nprintf '%s\\n' \"$*\" \"$PWD\" \"$ZORVEL_PORT_OFFSET\" > '" + record() +
                "/npm'\necho one; echo two; exit 1\n",
            true);
  std::filesystem::create_directories(home() + "/app");
  server().serve([](int) { return 200; });
  const std::string ownHome = std::getenv("HOME");
  setenv("HOME", user.c_str(), 1);
  setenv("BASH_ENV", (user + "/own-env").c_str(), 1);
  model->check();
  setenv("HOME", ownHome.c_str(), 1);
  unsetenv("BASH_ENV");
  EXPECT_EQ(model->headline(), "Varnholt已经在这台 Mac 上了");
  EXPECT_EQ(model->phase(), Phase::working);
  EXPECT_EQ(model->status(), "正在打开Varnholt。");
  EXPECT_TRUE(model->canCancel());

  ASSERT_TRUE(runToEnd());
  EXPECT_THAT(readLines(record() + "/npm"),
              ElementsAre("run -s zorvel:up", home() + "/app", std::to_string(Ctx::portOffset())));
  EXPECT_THAT(readLines(record() + "/profile"), ElementsAre("profile"));
  // Every bash the profile files start reads BASH_ENV too, as it would without the launcher.
  EXPECT_FALSE(readFile(record() + "/own-env-ran").empty());
  EXPECT_THAT(model->lines(), ElementsAre("one", "two"));
  EXPECT_EQ(server().requests(), 1);
  EXPECT_EQ(quits(), 1);
}

TEST_F(ModelTest, AFileNamedAppMeansInstalledAndAFailedStartStillProbes) {
  writeFile(home() + "/app", "not a directory");  // bash cannot start in it
  server().serve([](int) { return 200; });
  model->check();
  EXPECT_EQ(model->phase(), Phase::working);
  ASSERT_TRUE(runToEnd());
  EXPECT_THAT(model->lines(), ElementsAre("起不来：/bin/bash"));
  EXPECT_EQ(server().requests(), 1);
}

}  // namespace
}  // namespace kestravine
