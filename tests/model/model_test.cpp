#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>
#include <future>

#include "support/held_port.h"
#include "support/model_fixture.h"
#include "system/system_calls.h"

namespace kestravine::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::Not;
using Field = Model::Field;
using Fields = std::vector<Field>;
using Phase = Model::Phase;

TEST_F(ModelTest, CheckOffersTheInstallWhichRunsTheScriptAndAFailureKeepsTheLast400Lines) {
  writeInstallScript("seq 1000; printf '  \\e[32mfetching\\e[0m\\nfetching\\n'; exit 2");
  Fields seen;
  model->addListener([&](Field f) { seen.push_back(f); });
  model->check();
  EXPECT_EQ(seen, (Fields{Field::headline, Field::phase}));
  EXPECT_EQ(model->headline(), "Kestravine会装在这台电脑上");
  EXPECT_EQ(model->phase(), Phase::ready);
  EXPECT_EQ(model->status(), "");
  EXPECT_FALSE(model->canCancel());

  seen.clear();
  setenv("KESTRAVINE_HOME", "/changed", 1);  // the script gets the value the launcher started with
  model->install();
  setenv("KESTRAVINE_HOME", home().c_str(), 1);
  EXPECT_EQ(seen, (Fields{Field::phase, Field::canCancel, Field::status, Field::lines}));
  EXPECT_EQ(model->phase(), Phase::working);
  EXPECT_EQ(model->status(), "在装，第一次要几分钟。");

  seen.clear();
  ASSERT_TRUE(runToEnd());
  ASSERT_TRUE(platform().runUntil([&] { return model->linesAppended() == 1002; }));  // any order
  EXPECT_EQ(model->failure(),
            "没能装完（退出码 2）。多半是网络，或者这台电脑上已经有一份在跑。再试一次；"
            "不行就把下面的详情发给我。");
  EXPECT_FALSE(model->canCancel());
  ASSERT_EQ(model->lines().size(), 400u);  // the last 400
  EXPECT_EQ(model->lines().front(), "603");
  EXPECT_EQ(model->lines()[398], "fetching");  // equal lines both kept
  EXPECT_EQ(model->lines()[399], "fetching");
  EXPECT_EQ(model->status(), "fetching");
  const Fields failing{Field::failure, Field::phase, Field::canCancel};
  EXPECT_NE(std::search(seen.begin(), seen.end(), failing.begin(), failing.end()), seen.end());

  const std::string env = "\n" + readFile(record() + "/env");
  for (const std::string& variable :
       {std::string("KESTRAVINE_NO_OPEN=1"),
        "ZORVEL_PORT_OFFSET=" + std::to_string(Ctx::portOffset()), "KESTRAVINE_HOME=" + home(),
        "PATH=" + home() + "/node/bin:" + std::getenv("PATH")})
    EXPECT_THAT(env, HasSubstr("\n" + variable + "\n"));
  EXPECT_THAT(env, Not(HasSubstr("\nKESTRAVINE_SKIP_ATTEST=")));

  model->install();  // a new install starts without the old lines
  EXPECT_TRUE(model->lines().empty());
  ASSERT_TRUE(runToEnd());
}

// A listener may remove itself and add another while it is told: the change holds from the next
// notification on, and no listener is skipped or told twice.
TEST_F(ModelTest, ListenersMayComeAndGoWhileBeingTold) {
  std::vector<std::string> calls;
  int first = -1;
  first = model->addListener([&](Field) {
    calls.push_back("first");
    model->removeListener(first);
    model->addListener([&](Field) { calls.push_back("added"); });
  });
  model->addListener([&](Field) { calls.push_back("second"); });
  model->retry();  // failure, lines, phase, headline
  EXPECT_EQ(calls, (std::vector<std::string>{"first", "second", "second", "added", "second",
                                             "added", "second", "added"}));
}

// The tarball is the "kestravine-*.tar.gz" that sorts first by code point after canonical
// normalisation. Without one, or without the script, or without the folder, nothing starts.
TEST_F(ModelTest, InstallTakesTheTarballThatSortsFirstOrStartsNothing) {
  const std::tuple<std::vector<std::string>, bool, std::string> table[] = {
      {{"kestravine-1.9.tar.gz", "kestravine-1.10.tar.gz"}, true, "kestravine-1.10.tar.gz"},
      // "e" + combining acute is "é" once normalised, and "é." sorts before "éx".
      {{"kestravine-e\u0301x.tar.gz", "kestravine-é.tar.gz"}, true, "kestravine-é.tar.gz"},
      {{"Kestravine-0.tar.gz", "kestravine-5.tar.gz"}, true, "kestravine-5.tar.gz"},
      {{"Kestravine-2.tar.gz", "kestravine-2.tgz", "kestravine-2.gz"}, true, ""},
      {{"kestravine.tar.gz", "kestravine-.tar.gz.part"}, true, ""},
      {{"kestravine-2.0.1.tar.gz"}, false, ""},
      {{}, false, ""},  // no resource folder at all
  };
  for (const auto& [names, script, expected] : table) {
    fresh();
    std::filesystem::remove_all(resources());
    if (script) writeInstallScript("exit 1");
    for (const auto& name : names) writeFile(resources() + "/" + name, "");
    model->install();
    if (expected.empty()) {
      EXPECT_EQ(model->phase(), Phase::failed) << names.size();
      EXPECT_EQ(model->failure(), "这个安装包里少了安装文件。重新下载一份吧。");
      // The details say where the launcher looked and what it missed there.
      std::vector<std::string> details{"找过的文件夹：" + Ctx::resourceDir()};
      if (std::none_of(names.begin(), names.end(), [](const std::string& name) {
            return name.starts_with("kestravine-") && name.ends_with(".tar.gz");
          }))
        details.push_back("缺少：kestravine-<版本>.tar.gz");
      if (!script) details.push_back("缺少：install.sh");
      EXPECT_THAT(model->lines(), ElementsAreArray(details));
      EXPECT_TRUE(markedProcesses().empty());
      continue;
    }
    ASSERT_TRUE(runToEnd());
    EXPECT_EQ(readFile(record() + "/args"),
              resources() + "/install.sh\n--from\n" + resources() + "/" + expected + "\n");
  }
}

// The service start: "npm run -s zorvel:up" in a login shell in <home>/app, with the port offset
// and the product's own npm first even after the profile files set PATH afresh (as Debian's
// /etc/profile does; here the user's .bash_profile does it too), and the user's own BASH_ENV
// still run. The probe runs beside it, whatever its exit status.
TEST_F(ModelTest, ServiceStartRunsTheProductsNpmInALoginShellThenProbes) {
  const std::string user = record() + "/user";
  writeFile(user + "/.bash_profile",
            "echo profile >> '" + record() + "/profile'; PATH=/usr/bin:/bin\n");
  writeFile(user + "/own-env", "echo ran > '" + record() + "/own-env-ran'\n");
  writeFile(home() + "/node/bin/npm",
            "#!/bin/sh\nprintf '%s\\n' \"$*\" \"$PWD\" \"$ZORVEL_PORT_OFFSET\" > '" + record() +
                "/npm'\necho one; echo two; exit 1\n",
            true);
  std::filesystem::create_directories(home() + "/app");
  // The probe beside the start is not answered: the next one comes after a pause, which the
  // virtual clock reaches only once the start command has ended and its lines have arrived.
  server::serve([](int n) { return n == 1 ? 503 : 200; });
  const std::string ownHome = std::getenv("HOME");
  setenv("HOME", user.c_str(), 1);
  setenv("BASH_ENV", (user + "/own-env").c_str(), 1);
  model->check();
  setenv("HOME", ownHome.c_str(), 1);
  unsetenv("BASH_ENV");
  EXPECT_EQ(model->headline(), "Varnholt已经在这台电脑上了");
  EXPECT_EQ(model->phase(), Phase::working);
  EXPECT_EQ(model->status(), "正在打开Varnholt。");
  EXPECT_TRUE(model->canCancel());

  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(readFile(record() + "/npm"),
            "run -s zorvel:up\n" + home() + "/app\n" + std::to_string(Ctx::portOffset()) + "\n");
  EXPECT_EQ(readFile(record() + "/profile"), "profile\n");
  // Every bash the profile files start reads BASH_ENV too, as it would without the launcher.
  EXPECT_EQ(readFile(record() + "/own-env-ran"), "ran\n");
  ASSERT_TRUE(platform().runUntil([&] { return model->lines().size() == 2; }));  // any order
  EXPECT_THAT(model->lines(), ElementsAre("one", "two"));
  EXPECT_EQ(server::requests(), 2);
  EXPECT_EQ(quits(), 1);
}

using ProbeTest = ModelTest;

// Probes until the application answers, a pause of 2 s after each that fails: error statuses
// and a stall (ended by the probe's 3 s limit) are not ready, a redirect is. Then the browser
// opens the address and the launcher quits 0.8 s later. The user's proxy settings never stand in
// between: a dead proxy in the environment, or in a curlrc that also sends every connection to
// the dead port. KESTRAVINE_NO_OPEN is "yes" here, which keeps nothing closed.
TEST_F(ProbeTest, ProbesUntilTheApplicationAnswersThenOpensAndQuits) {
  const HeldPort proxy;  // refuses every connection
  const std::string dead = "127.0.0.1:" + std::to_string(proxy.port());
  const std::string curlHome = record() + "/curl-home";
  const std::string ownHome = std::getenv("HOME");
  const std::tuple<std::vector<int>, std::string, std::string> table[] = {
      {{503, 503, 200}, "", ""},
      {{302}, "", ""},
      {{200}, "http_proxy", "http://" + dead},
      {{200}, "HOME", curlHome}};
  for (const auto& [answers, variable, value] : table) {
    fresh();
    writeFile(curlHome + "/.curlrc",
              "proxy = \"http://" + dead + "\"\nconnect-to = \"::" + dead + "\"\n");
    server::serve([all = answers](int n) { return all[std::min<std::size_t>(n, all.size()) - 1]; });
    if (!variable.empty()) setenv(variable.c_str(), value.c_str(), 1);
    start(true, "exit 0");
    const Delay probingFrom = platform().now();
    ASSERT_TRUE(runToEnd());
    variable == "HOME" ? setenv("HOME", ownHome.c_str(), 1) : unsetenv(variable.c_str());
    const int probes = static_cast<int>(answers.size());
    EXPECT_EQ(server::requests(), probes) << answers[0] << variable;
    EXPECT_EQ(model->status(), "打开了。");
    ASSERT_EQ(opened(), 1);
    EXPECT_EQ(platform().openedUrls().back(),
              "http://127.0.0.1:" + std::to_string(5199 + Ctx::portOffset()) + "/home/");
    EXPECT_EQ(platform().openedAt() - probingFrom, std::chrono::seconds(2 * (probes - 1)));
    EXPECT_EQ(platform().quitAt() - platform().openedAt(), std::chrono::milliseconds(800));
    EXPECT_EQ(quits(), 1);
  }
}

// With no browser that could be asked (no opener, or none could be started), the window stays
// and gives the address to open by hand rather than quitting as after a success.
TEST_F(ProbeTest, WithNoBrowserToAskTheWindowGivesTheAddressInstead) {
  server::serve([](int) { return 200; });
  platform().setCanOpen(false);
  start(true, "exit 0");
  ASSERT_TRUE(runToEnd());
  platform().setCanOpen(true);
  EXPECT_EQ(model->phase(), Phase::failed);
  EXPECT_EQ(model->failure(),
            "Varnholt已经起来了，但没能打开浏览器。请在浏览器里打开：\nhttp://127.0.0.1:" +
                std::to_string(5199 + Ctx::portOffset()) + "/home/");
  settle();
  platform().advance(std::chrono::seconds(1));
  EXPECT_EQ(quits(), 0);
}

// While the start command speaks, its lines are the status; once it has ended, what the last
// probe saw, with cancel still offered. A cancel then stops the wait, and nothing the start left
// running: those are the product's services.
TEST_F(ProbeTest, TheWaitSaysWhatItSeesAndCanBeLeft) {
  const std::string gate = record() + "/gate";
  ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
  installProduct("echo starting; read -r _ < '" + gate + "'; setsid sleep 1000 </dev/null " +
                 ">/dev/null 2>&1 & echo $! > '" + record() + "/left'");
  // The probe beside the start is answered only once the start has spoken.
  std::promise<void> answer;
  server::serve([spoken = answer.get_future().share()](int) { return spoken.wait(), 503; });
  model->check();
  ASSERT_TRUE(platform().runUntil([&] { return model->status() == "starting"; }));
  answer.set_value();
  ASSERT_TRUE(platform().runUntil([&] { return server::requests() > 0; }));
  settle(1);
  EXPECT_EQ(model->status(), "starting");
  writeFile(gate, "go\n");
  const std::string seen =
      "还在等Varnholt：端口 " + std::to_string(server::port()) + " 回答了 HTTP 503，还不能用。";
  ASSERT_TRUE(platform().runUntil([&] { return !model->runs() && model->status() == seen; }));
  EXPECT_TRUE(model->canCancel());
  model->cancel();
  EXPECT_EQ(model->failure(), "停下了。什么都没改坏，再点一次可以重来。");
  platform().advance(std::chrono::seconds(11));
  settle();
  EXPECT_EQ(platform().pendingMainTimers(), 0u);
  const pid_t left = std::stoi(readFile(record() + "/left"));
  EXPECT_FALSE(isGone(left));
  kill(left, SIGKILL);
}

// An install or a service start that could not be started at all (here: no thread for its output
// reader, or for its exit watcher once it runs, which then stops it) fails at once with what
// could not be started and why, never with an exit status; the runner's lines stay in the
// details, nothing of it is left running, and nothing probes.
TEST_F(ModelTest, ACommandThatCouldNotBeStartedSaysWhy) {
  static const auto realStart = system_calls::startThread;
  static int calls;
  static int refuseAt;
  for (int refused : {1, 2}) {
    const bool install = refused == 1;
    fresh();
    install ? writeInstallScript("exit 0") : installProduct("exit 0");
    calls = 0;
    refuseAt = refused;
    system_calls::startThread = [](std::function<void()> task) {
      if (++calls == refuseAt) throw std::system_error(EAGAIN, std::generic_category());
      realStart(std::move(task));
    };
    install ? model->install() : model->check();
    system_calls::startThread = realStart;
    ASSERT_TRUE(platform().runUntil([&] { return model->phase() == Phase::failed; }));
    EXPECT_EQ(
        model->failure(),
        std::string(install ? "没能开始安装：" : "没能启动Varnholt的服务：") +
            "系统不让再开新的进程（EAGAIN）。关掉一些程序后再试一次；不行就把下面的详情发给我。");
    EXPECT_THAT(model->lines(), Contains("起不来：/bin/bash"));
    EXPECT_THAT(model->lines(), Contains("原因：" + std::string(strerror(EAGAIN)) + "（EAGAIN）"));
    platform().advance(std::chrono::seconds(2));
    settle();
    EXPECT_EQ(platform().pendingMainTimers(), 0u);
  }
}

// The suites below run in processes of their own with the environment their CTest entries set
// (see CMakeLists.txt): the environment snapshot is taken once per process.

// KESTRAVINE_HOME empty, ZORVEL_PORT_OFFSET "abc", KESTRAVINE_SKIP_ATTEST set.
using ModelEnvOddValues = ModelTest;

TEST_F(ModelEnvOddValues, ValuesPassAsSet) {
  EXPECT_EQ(home(), std::string(std::getenv("HOME")) + "/.kestravine");
  EXPECT_EQ(Ctx::portOffset(), 0);
  setenv("KESTRAVINE_SKIP_ATTEST", "changed", 1);  // the script gets the value at start
  start(true, "exit 0");
  model->cancel();  // the wait, at a port nobody answers in this entry's network
  const std::string env = "\n" + readFile(record() + "/env");
  for (const char* variable :
       {"KESTRAVINE_HOME=", "ZORVEL_PORT_OFFSET=0", "KESTRAVINE_SKIP_ATTEST=yes please"})
    EXPECT_THAT(env, HasSubstr("\n" + std::string(variable) + "\n"));

  fresh();  // the service start too gets the offset the launcher uses, not the one it was given
  start(false, "echo $ZORVEL_PORT_OFFSET > '" + record() + "/offset'");
  model->cancel();
  EXPECT_EQ(readFile(record() + "/offset"), "0\n");
}

// KESTRAVINE_HOME holds blanks, quotes and a command substitution; KESTRAVINE_NO_OPEN is "1".
using ModelEnvQuotedHome = ModelTest;

TEST_F(ModelEnvQuotedHome, NoShellEverInterpretsTheHomeAndNoOpenKeepsTheBrowserClosed) {
  ASSERT_NE(home().find("$(touch"), std::string::npos);
  server::serve([](int) { return 200; });
  start(false, "pwd > '" + record() + "/pwd'");
  ASSERT_TRUE(runToEnd());
  EXPECT_EQ(readFile(record() + "/pwd"), home() + "/app\n");
  EXPECT_EQ(model->status(), "打开了。");
  EXPECT_EQ(opened(), 0);
  EXPECT_EQ(quits(), 1);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(TEST_SCRATCH))
    EXPECT_NE(entry.path().filename(), "pwned");
}

}  // namespace
}  // namespace kestravine::testing
