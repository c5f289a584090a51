#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "model/model.h"
#include "platform/virtual_platform.h"

namespace kestravine::testing {

// One world for the model's flow: a fresh product home and resource directory (inside the build
// tree, where the CTest entry points KESTRAVINE_HOME), the launcher's service-env script beside
// install.sh, a server that is not ready, a new Model, real processes and virtual time.
// TearDown() runs what is still due and then fails if any process the test started is left.
class ModelTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  static std::string home();
  static std::string resources();
  static std::string record();  // where test scripts write what they saw

  static void writeFile(const std::string& path, const std::string& text, bool executable = false);
  static std::string readFile(const std::string& path);
  static std::vector<std::string> readLines(const std::string& path);
  // A tarball and an install script that records its arguments ("args") and environment
  // ("env") under record(), then runs `body`. Replaced atomically: a running script keeps its
  // old text.
  static void writeInstallScript(const std::string& body);
  // The product looks installed, with `command` as its "zorvel:up" npm script.
  static void installProduct(const std::string& command);
  static std::string helper(const std::string& args);  // the helper program as a shell command

  // Runs the flow until the launcher quits or fails, moving the virtual clock only when a timer
  // of the main queue is all that can move it on. False if that does not happen within the
  // real-time limit.
  bool runToEnd();
  bool runUntil(const std::function<bool()>& done);
  // Runs the main queue for 0.3 s of real time, so that reports already on their way (a
  // cancelled run's late exit) arrive; one that came later would weaken the check, not break it.
  void settle();
  int quits() const;   // since this test began
  int opened() const;  // browser openings since this test began

  VirtualPlatform& clock();
  std::shared_ptr<Model> model = Model::create();

 private:
  int quitsBefore_ = 0;
  std::size_t openedBefore_ = 0;
};

}  // namespace kestravine::testing
