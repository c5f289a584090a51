#include "support/model_fixture.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "env/ctx.h"
#include "support/processes.h"
#include "support/test_platform.h"
#include "support/test_server.h"

namespace fs = std::filesystem;

namespace kestravine::testing {

namespace {

// Refuses to wipe anything outside the build tree, whatever the environment says.
void resetDirectory(const std::string& path) {
  ASSERT_TRUE(path.starts_with(TEST_SCRATCH)) << path;
  fs::remove_all(path);
  fs::create_directories(path);
}

}  // namespace

void ModelTest::SetUp() {
  for (const auto& dir : {home(), resources(), record()}) resetDirectory(dir);
  fs::copy_file(SERVICE_ENV_SCRIPT, resources() + "/" + Model::kServiceEnvScript);
  server().refuse();
  quitsBefore_ = platform().quitCount();
  openedBefore_ = platform().openedUrls().size();
}

void ModelTest::TearDown() {
  model.reset();
  // Pending probe retries find no model; pending SIGKILLs end what a cancel left.
  clock().advance(std::chrono::seconds(11));
  const std::string left = waitForNoMarkedProcess();
  EXPECT_TRUE(left.empty()) << "processes left behind:" << left;
}

std::string ModelTest::home() {
  return Ctx::kestravineHome();
}
std::string ModelTest::resources() {
  return std::string(TEST_SCRATCH) + "/share/kestravine";
}
std::string ModelTest::record() {
  return std::string(TEST_SCRATCH) + "/record";
}

void ModelTest::writeFile(const std::string& path, const std::string& text, bool executable) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
  if (executable) chmod(path.c_str(), 0755);
}

std::string ModelTest::readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<std::string> ModelTest::readLines(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

void ModelTest::writeInstallScript(const std::string& body) {
  writeFile(resources() + "/kestravine-2.0.1.tar.gz", "");
  const std::string script = resources() + "/install.sh";
  writeFile(script + ".new", "printf '%s\\n' \"$0\" \"$@\" > '" + record() + "/args'\nenv > '" +
                                 record() + "/env'\n" + body + "\n");
  fs::rename(script + ".new", script);
}

void ModelTest::installProduct(const std::string& command) {
  std::string escaped;
  for (char c : command) {
    if (c == '"' || c == '\\') escaped += '\\';
    escaped += c;
  }
  writeFile(home() + "/app/package.json",
            "{\"name\": \"product\", \"private\": true,\n \"scripts\": {\"zorvel:up\": \"" +
                escaped + "\"}}\n");
}

std::string ModelTest::helper(const std::string& args) {
  return std::string("'") + TEST_HELPER + "' " + args;
}

bool ModelTest::runUntil(const std::function<bool()>& done) {
  return clock().runUntil(done);
}

void ModelTest::settle() {
  clock().runUntil([] { return false; }, std::chrono::milliseconds(300));
}

int ModelTest::quits() const {
  return platform().quitCount() - quitsBefore_;
}
int ModelTest::opened() const {
  return static_cast<int>(platform().openedUrls().size() - openedBefore_);
}

VirtualPlatform& ModelTest::clock() {
  return platform();
}

bool ModelTest::runToEnd() {
  for (;;) {
    auto finished = [&] { return quits() > 0 || model->phase() == Model::Phase::failed; };
    if (!runUntil([&] { return finished() || clock().pendingMainTimers() > 0; })) return false;
    if (finished()) return true;
    clock().advanceToNextTimer();
  }
}

}  // namespace kestravine::testing
