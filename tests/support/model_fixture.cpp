#include "support/model_fixture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "env/ctx.h"
#include "support/http_server.h"
#include "support/test_platform.h"

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

std::vector<pid_t> liveDescendants() {
  std::multimap<pid_t, pid_t> children;
  // Processes come and go while /proc is read: error codes, not exceptions.
  std::error_code error;
  for (fs::directory_iterator it("/proc", error), end; !error && it != end; it.increment(error)) {
    const fs::directory_entry& entry = *it;
    std::ifstream stat(entry.path() / "stat");
    std::string text;
    if (!std::getline(stat, text)) continue;
    auto close = text.rfind(')');
    if (close == std::string::npos) continue;
    std::istringstream rest(text.substr(close + 2));
    char state = 0;
    pid_t pid = std::atoi(entry.path().filename().c_str());
    pid_t ppid = 0;
    rest >> state >> ppid;
    if (state != 'Z') children.emplace(ppid, pid);
  }
  std::vector<pid_t> result;
  std::vector<pid_t> todo{getpid()};
  while (!todo.empty()) {
    pid_t parent = todo.back();
    todo.pop_back();
    auto [first, last] = children.equal_range(parent);
    for (auto it = first; it != last; ++it) {
      result.push_back(it->second);
      todo.push_back(it->second);
    }
  }
  return result;
}

void ModelTest::SetUp() {
  resetDirectory(home());
  resetDirectory(resources());
  resetDirectory(record());
  // Laid out as the launcher ships: the service start's BASH_ENV script beside install.sh.
  fs::copy_file(SERVICE_ENV_SCRIPT, resources() + "/" + Model::kServiceEnvScript);
  quitsBefore_ = platform().quitCount();
}

void ModelTest::TearDown() {
  model.reset();
  server().stop();
  // Let every pending timer run: probe retries find no model, kill follow-ups end what a
  // cancel left; then nothing this test started may still run.
  clock().advance(std::chrono::seconds(11));
  std::vector<pid_t> left = liveDescendants();
  for (int i = 0; i < 2000 && !left.empty(); ++i) {
    clock().runUntil([] { return true; });
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    left = liveDescendants();
  }
  std::string names;
  for (pid_t pid : left) {
    std::ifstream cmdline("/proc/" + std::to_string(pid) + "/cmdline");
    std::string name;
    std::getline(cmdline, name, '\0');
    names += " " + std::to_string(pid) + ":" + name;
  }
  EXPECT_TRUE(left.empty()) << "processes left behind:" << names;
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
  const std::string script = resources() + "/install.sh";
  writeFile(script + ".new", "printf '%s\\n' \"$0\" \"$@\" > '" + record() +
                                 "/args'\n"
                                 "env > '" +
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
            "{\"name\": \"product\", \"private\": true,\n"
            " \"scripts\": {\"zorvel:up\": \"" +
                escaped + "\"}}\n");
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
