#include "support/processes.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <thread>

#include "support/test_platform.h"

namespace kestravine::testing {

namespace {

// Kernel threads have no program, and so never an environment.
bool hasProgram(const std::filesystem::path& process) {
  std::error_code error;
  return !std::filesystem::read_symlink(process / "exe", error).empty();
}

}  // namespace

std::string readFile(const std::string& path) {
  // Not a stream: reading /proc/<pid>/... of a process that ends meanwhile fails with ESRCH,
  // which libstdc++'s file buffer throws as an exception.
  std::string text;
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return text;
  char buffer[4096];
  for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) != 0;) {
    if (n > 0) text.append(buffer, static_cast<std::size_t>(n));
    if (n < 0 && errno != EINTR) break;
  }
  close(fd);
  return text;
}

bool isGone(pid_t pid) {
  // The state follows the command name, which is in parentheses and may hold anything.
  const std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
  const auto name = stat.rfind(')');
  return name == std::string::npos || name + 2 >= stat.size() || stat[name + 2] == 'Z';
}

std::vector<pid_t> markedProcesses() {
  const std::string mark = '\0' + std::string(kMark) + "=" + std::to_string(getpid()) + '\0';
  std::vector<pid_t> found;
  std::error_code error;  // processes come and go while /proc is read
  for (std::filesystem::directory_iterator it("/proc", error), end; !error && it != end;
       it.increment(error)) {
    const pid_t pid = std::atoi(it->path().filename().c_str());
    if (pid <= 0 || pid == getpid() || isGone(pid)) continue;
    // Empty while a process is between two programs (an exec under way): read again.
    std::string environ = readFile(it->path() / "environ");
    for (int i = 0; i < 1000 && environ.empty() && hasProgram(it->path()) && !isGone(pid); ++i)
      environ = readFile(it->path() / "environ");
    if (('\0' + environ).find(mark) != std::string::npos) found.push_back(pid);
  }
  return found;
}

bool eventually(const std::function<bool()>& done) {
  // Asked once per round: what held may not hold a moment later (a script's own commands come
  // and go), and the answer must be the one that ended the wait.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (bool last = done();; last = done()) {
    if (last || std::chrono::steady_clock::now() >= deadline) return last;
    platform().runUntil([] { return true; });
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

std::string waitForNoMarkedProcess() {
  std::vector<pid_t> left;
  eventually([&] { return (left = markedProcesses()).empty(); });
  std::string names;
  for (pid_t pid : left)
    names += " " + std::to_string(pid) + ":" +
             readFile("/proc/" + std::to_string(pid) + "/cmdline").c_str();
  return names;
}

uid_t unusedUid() {
  // The same choice as the shell tests'.
  const std::unique_ptr<FILE, int (*)(FILE*)> chosen(popen("bash '" UNUSED_UID_SCRIPT "'", "r"),
                                                     pclose);
  unsigned uid = 0;
  return chosen && std::fscanf(chosen.get(), "%u", &uid) == 1 ? uid : 0;
}

}  // namespace kestravine::testing
