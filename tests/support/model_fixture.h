#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "env/ctx.h"
#include "model/model.h"
#include "process/child.h"
#include "support/processes.h"
#include "support/test_platform.h"
#include "support/test_server.h"

namespace kestravine::testing {

// One world for the model's flow: a fresh product home and resource directory (inside the build
// tree, where the CTest entry points KESTRAVINE_HOME) holding a tarball and the launcher's
// service-env script, a server that is not ready, a new Model, real processes and virtual time.
// TearDown() runs what is still due and then fails if any process the test started is left.
class ModelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const auto& dir : {home(), resources(), record()}) {
      ASSERT_TRUE(dir.starts_with(TEST_SCRATCH)) << dir;  // never wipe outside the build tree
      std::filesystem::remove_all(dir);
      std::filesystem::create_directories(dir);
    }
    // This process's server stands in for the product's, so it must be the product's as the
    // launcher tells it: its working directory lies in the product home, as the product's
    // server's does. A test moves elsewhere to play a program that is not the product.
    ASSERT_EQ(chdir(home().c_str()), 0) << home();
    std::filesystem::copy_file(SERVICE_ENV_SCRIPT, resources() + "/" + Model::kServiceEnvScript);
    writeFile(resources() + "/kestravine-2.0.1.tar.gz", "");
    server::serve([](int) { return 503; });
    quitsBefore_ = platform().quitCount();
    openedBefore_ = platform().openedUrls().size();
  }
  void TearDown() override {
    model.reset();
    // Pending probe retries find no model; pending SIGKILLs end what a cancel left.
    platform().advance(std::chrono::seconds(11));
    const std::string left = waitForNoMarkedProcess();
    EXPECT_TRUE(left.empty()) << "processes left behind:" << left;
  }
  // A new world and model, for each row of a table.
  void fresh() {
    SetUp();
    model = Model::create();
  }

  static std::string home() { return Ctx::kestravineHome(); }
  static std::string resources() { return std::string(TEST_SCRATCH) + "/share/kestravine"; }
  static std::string record() { return std::string(TEST_SCRATCH) + "/record"; }

  static void writeFile(const std::string& path, const std::string& text, bool executable = false) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
    if (executable) chmod(path.c_str(), 0755);
  }
  // An install script that records its arguments ("args") and environment ("env") under
  // record(), then runs `body`. Replaced atomically: a running script keeps its old text.
  static void writeInstallScript(const std::string& body) {
    const std::string script = resources() + "/install.sh";
    writeFile(script + ".new", "printf '%s\\n' \"$0\" \"$@\" > '" + record() + "/args'\nenv > '" +
                                   record() + "/env'\n" + body + "\n");
    std::filesystem::rename(script + ".new", script);
  }
  // The product looks installed, with `command` as its "zorvel:up" npm script.
  static void installProduct(const std::string& command) {
    std::string json;
    for (char c : command) json += c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
    writeFile(home() + "/app/package.json", "{\"scripts\": {\"zorvel:up\": \"" + json + "\"}}\n");
  }
  // Starts `command` as the install, or as the service start of an installed product, and runs
  // the main queue until `lines` lines have arrived; with `lines` 0, until the command has ended.
  void start(bool install, const std::string& command, std::size_t lines = 0) {
    install ? writeInstallScript(command) : installProduct(command);
    install ? model->install() : model->check();
    ASSERT_TRUE(platform().runUntil(
        [&] { return lines ? model->lines().size() >= lines : !model->runs(); }));
  }

  // Runs the flow until the launcher quits or fails, moving the virtual clock only when a timer
  // of the main queue is all that can move it on: no command has anything on its way. False if
  // that does not happen in real time.
  bool runToEnd() {
    auto finished = [&] { return quits() > 0 || model->phase() == Model::Phase::failed; };
    // Longer than any flow may take (a wait gives up within about 225 s), so that a flow that
    // never ends fails the test instead of holding it.
    const Delay bound = platform().now() + std::chrono::minutes(10);
    for (;;) {
      if (platform().now() > bound) return false;
      if (!platform().runUntil([&] {
            return finished() ||
                   (platform().pendingMainTimers() > 0 && Child::reportsInFlight() == 0);
          }))
        return false;
      if (finished()) return true;
      platform().advanceToNextTimer();
    }
  }
  // Moves the virtual clock on by `span`, one due timer at a time, each only once no command has
  // anything on its way. False if the commands do not settle in real time.
  static bool elapse(Delay span) {
    const Delay until = platform().now() + span;
    for (;;) {
      if (!platform().runUntil([] { return Child::reportsInFlight() == 0; })) return false;
      if (platform().pendingTimers() == 0 || platform().nextTimerAt() > until) break;
      platform().advanceToNextTimer();
    }
    platform().advance(until - platform().now());
    return true;
  }
  // Runs the main queue until every command's output and exit report have arrived, but for
  // `running` commands still under way: what a check of what did not happen must wait for.
  static void settle(std::size_t running = 0) {
    ASSERT_TRUE(platform().runUntil([&] { return Child::reportsInFlight() <= running; }));
    platform().runUntil([] { return true; });  // what the last of them queued
  }
  int quits() const { return platform().quitCount() - quitsBefore_; }
  int opened() const { return static_cast<int>(platform().openedUrls().size() - openedBefore_); }

  std::shared_ptr<Model> model = Model::create();

 private:
  int quitsBefore_ = 0;
  std::size_t openedBefore_ = 0;
};

}  // namespace kestravine::testing
