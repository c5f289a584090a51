#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "model/model.h"
#include "platform/virtual_platform.h"

namespace kestravine::testing {

// A fresh product home and resource directory for each test (both inside the build tree: the
// CTest entry points KESTRAVINE_HOME there), a new Model, and helpers to drive its flow with
// real processes and virtual time. TearDown() waits until no process this test started is left.
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
  // Replaces install.sh atomically, so a script still running keeps reading its old text.
  // The script first records its arguments and environment under record().
  static void writeInstallScript(const std::string& body);
  // Makes the product look installed, with `command` as its "zorvel:up" npm script.
  static void installProduct(const std::string& command);

  // Runs the flow until the launcher quits or fails, moving the virtual clock only when a
  // timer is all that can move it on. False if that does not happen within the real-time limit.
  bool runToEnd();
  bool runUntil(const std::function<bool()>& done);
  int quits() const;
  // Runs the main queue for a short while of real time, so that reports already on their way
  // (the late exit of a cancelled run) arrive. A report that came later still would make the
  // check that follows weaker, never wrong: nothing is expected to happen.
  void settle();

  VirtualPlatform& clock();
  std::shared_ptr<Model> model = Model::create();
  int quitsBefore_ = 0;
};

// Live (non-zombie) processes descending from this test process.
std::vector<pid_t> liveDescendants();

}  // namespace kestravine::testing
