// Each suite here runs in a process of its own with the environment its CTest entry sets (see
// CMakeLists.txt): the environment snapshot is taken once per process.
#include <gmock/gmock.h>

#include "support/model_fixture.h"

namespace kestravine {
namespace {

using ::testing::HasSubstr;
using testing::ModelTest;
using testing::platform;
using testing::readFile;
namespace server = testing::server;

// KESTRAVINE_HOME empty, ZORVEL_PORT_OFFSET "abc", KESTRAVINE_SKIP_ATTEST set,
// KESTRAVINE_NO_OPEN "yes".
using ModelEnvOddValues = ModelTest;

TEST_F(ModelEnvOddValues, ValuesPassAsSetAndTheOffsetFallsBackToZero) {
  EXPECT_EQ(home(), std::string(std::getenv("HOME")) + "/.kestravine");
  EXPECT_EQ(Ctx::portOffset(), 0);
  writeInstallScript("exit 0");
  setenv("KESTRAVINE_SKIP_ATTEST", "changed", 1);  // the script gets the value at start
  model->install();
  ASSERT_TRUE(runToEnd());  // nobody answers at 5199: the probe gives up
  const std::string env = "\n" + readFile(record() + "/env");
  for (const char* variable :
       {"KESTRAVINE_HOME=", "ZORVEL_PORT_OFFSET=0", "KESTRAVINE_SKIP_ATTEST=yes please"})
    EXPECT_THAT(env, HasSubstr("\n" + std::string(variable) + "\n"));

  fresh();
  installProduct("echo \"$ZORVEL_PORT_OFFSET\" > '" + record() + "/offset'");
  model->check();
  ASSERT_TRUE(platform().runUntil([&] { return !model->canCancel(); }));
  EXPECT_EQ(readFile(record() + "/offset"), "0\n");
}

// KESTRAVINE_HOME holds blanks, quotes and a command substitution; KESTRAVINE_NO_OPEN is "yes".
using ModelEnvQuotedHome = ModelTest;

TEST_F(ModelEnvQuotedHome, NoShellEverInterpretsTheHomeAndOnlyOneSuppressesTheBrowser) {
  ASSERT_NE(home().find("$(touch"), std::string::npos);
  installProduct("pwd > '" + record() + "/pwd'");
  server::serve([](int) { return 200; });
  model->check();
  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(readFile(record() + "/pwd"), home() + "/app\n");
  EXPECT_EQ(opened(), 1);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(TEST_SCRATCH))
    EXPECT_NE(entry.path().filename(), "pwned");
}

// KESTRAVINE_NO_OPEN=1.
using ModelEnvNoOpen = ModelTest;

TEST_F(ModelEnvNoOpen, QuitsWithoutOpeningTheBrowser) {
  writeInstallScript("exit 0");
  server::serve([](int) { return 200; });
  model->install();
  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(model->status(), "打开了。");
  EXPECT_EQ(opened(), 0);
  EXPECT_EQ(quits(), 1);
}

}  // namespace
}  // namespace kestravine
