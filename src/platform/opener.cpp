#include "platform/opener.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>

#include "system/spawn.h"

namespace kestravine {

namespace {

std::string onPath(const std::string& name) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(path ? path : "/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return {};
}

}  // namespace

std::optional<Opener> Opener::start(const std::string& url, bool& found) {
  const std::string xdgOpen = onPath("xdg-open");
  found = !xdgOpen.empty();
  if (!found) return std::nullopt;
  const SpawnResult spawned = spawnProcess({xdgOpen, {url}, {}, {}, -1});
  if (spawned.pid < 0) return std::nullopt;
  return Opener(spawned.pid);
}

std::optional<bool> Opener::result() {
  int status = 0;
  const pid_t reaped = ::waitpid(pid_, &status, WNOHANG);
  if (reaped == 0) {
    if (std::chrono::steady_clock::now() - asked_ >= kBound) return true;
    return std::nullopt;
  }
  if (reaped < 0 && errno == EINTR) return std::nullopt;
  reaped_ = true;
  return reaped == pid_ && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool Opener::reap() {
  if (!reaped_) {
    const pid_t reaped = ::waitpid(pid_, nullptr, WNOHANG);
    reaped_ = reaped == pid_ || (reaped < 0 && errno != EINTR);
  }
  return reaped_;
}

}  // namespace kestravine
