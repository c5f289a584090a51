// Each suite here runs in a process of its own with the environment its CTest entry sets (see
// CMakeLists.txt): the environment snapshot is taken once per process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "env/ctx.h"
#include "support/model_fixture.h"
#include "support/test_server.h"

namespace kestravine {
namespace {

using ::testing::Contains;
using testing::ModelTest;
using testing::server;

// KESTRAVINE_HOME empty, ZORVEL_PORT_OFFSET "abc", KESTRAVINE_SKIP_ATTEST set,
// KESTRAVINE_NO_OPEN "yes" (not "1": the browser opens).
using ModelEnvOddValues = ModelTest;

TEST_F(ModelEnvOddValues, ValuesPassAsSetTheOffsetFallsBackToZeroTheBrowserOpens) {
  EXPECT_EQ(home(), std::string(std::getenv("HOME")) + "/.kestravine");
  EXPECT_EQ(Ctx::portOffset(), 0);
  writeInstallScript("exit 0");
  setenv("KESTRAVINE_SKIP_ATTEST", "changed", 1);  // the script gets the value at start
  model->install();
  ASSERT_TRUE(runToEnd());  // nobody answers at 5199: the probe gives up
  const auto env = readLines(record() + "/env");
  EXPECT_THAT(env, Contains("KESTRAVINE_HOME="));
  EXPECT_THAT(env, Contains("ZORVEL_PORT_OFFSET=0"));
  EXPECT_THAT(env, Contains("KESTRAVINE_SKIP_ATTEST=yes please"));

  SetUp();
  model = Model::create();
  installProduct("echo \"$ZORVEL_PORT_OFFSET\" > '" + record() + "/offset'");
  model->check();
  ASSERT_TRUE(runUntil([&] { return !model->canCancel(); }));
  EXPECT_EQ(readFile(record() + "/offset"), "0\n");
  model.reset();
}

// KESTRAVINE_HOME holds blanks, quotes and a command substitution.
using ModelEnvQuotedHome = ModelTest;

TEST_F(ModelEnvQuotedHome, NoShellEverInterpretsTheHome) {
  ASSERT_NE(home().find("$(touch"), std::string::npos);
  installProduct("pwd > '" + record() + "/pwd'");
  server().serve([](int) { return 200; });
  model->check();
  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(readFile(record() + "/pwd"), home() + "/app\n");
  EXPECT_EQ(opened(), 1);  // KESTRAVINE_NO_OPEN "yes" is not "1"
  for (const auto& entry : std::filesystem::recursive_directory_iterator(TEST_SCRATCH)) {
    EXPECT_NE(entry.path().filename(), "pwned");
  }
}

// KESTRAVINE_NO_OPEN=1.
using ModelEnvNoOpen = ModelTest;

TEST_F(ModelEnvNoOpen, QuitsWithoutOpeningTheBrowser) {
  writeInstallScript("exit 0");
  server().serve([](int) { return 200; });
  model->install();
  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(model->status(), "打开了。");
  EXPECT_EQ(opened(), 0);
  EXPECT_EQ(quits(), 1);
}

}  // namespace
}  // namespace kestravine
