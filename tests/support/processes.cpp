#include "support/processes.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "support/test_platform.h"

namespace kestravine::testing {

namespace {

std::string read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool isKernelThread(pid_t pid) {
  const std::string stat = read("/proc/" + std::to_string(pid) + "/stat");
  std::istringstream fields(stat.substr(std::min(stat.size(), stat.rfind(')') + 1)));
  std::string field;
  for (int i = 3; i <= 9 && fields >> field; ++i) {
  }
  constexpr unsigned long kKernelThread = 0x00200000;  // PF_KTHREAD, in field 9
  return stat.empty() || (std::stoul(field.empty() ? "0" : field) & kKernelThread) != 0;
}

}  // namespace

bool isGone(pid_t pid) {
  const std::string stat = read("/proc/" + std::to_string(pid) + "/stat");
  // The state follows the command name, which is in parentheses and may hold anything.
  const auto close = stat.rfind(')');
  return close == std::string::npos || close + 2 >= stat.size() || stat[close + 2] == 'Z';
}

std::vector<pid_t> markedProcesses() {
  const std::string mark = std::string(kMark) + "=" + std::to_string(getpid());
  std::vector<pid_t> found;
  std::error_code error;  // processes come and go while /proc is read
  for (std::filesystem::directory_iterator it("/proc", error), end; !error && it != end;
       it.increment(error)) {
    const pid_t pid = std::atoi(it->path().filename().c_str());
    if (pid <= 0 || pid == getpid() || isGone(pid)) continue;
    // Empty while a process is between two programs (an exec under way): read again. Kernel
    // threads have none for good.
    std::string environ = read(it->path() / "environ");
    for (int tries = 0; tries < 1000 && environ.empty() && !isKernelThread(pid) && !isGone(pid);
         ++tries) {
      std::this_thread::yield();
      environ = read(it->path() / "environ");
    }
    for (std::size_t at = 0; (at = environ.find(mark, at)) != std::string::npos; ++at) {
      const std::size_t end = at + mark.size();
      if ((at == 0 || environ[at - 1] == '\0') && (end == environ.size() || environ[end] == '\0')) {
        found.push_back(pid);
        break;
      }
    }
  }
  return found;
}

std::string waitForNoMarkedProcess(int seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  std::vector<pid_t> left = markedProcesses();
  while (!left.empty() && std::chrono::steady_clock::now() < deadline) {
    platform().runUntil([] { return true; });  // exit reports may be waiting to be reaped
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    left = markedProcesses();
  }
  std::string names;
  for (pid_t pid : left) {
    std::string command = read("/proc/" + std::to_string(pid) + "/cmdline");
    names += " " + std::to_string(pid) + ":" + command.substr(0, command.find('\0'));
  }
  return names;
}

}  // namespace kestravine::testing
