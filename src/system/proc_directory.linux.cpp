#include "system/proc_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <string_view>
#include <utility>

#include "system/system_calls.h"
#include "text/decimal.h"

namespace kestravine {

std::optional<ProcDirectory> ProcDirectory::open(pid_t pid) {
  if (pid <= 0) return std::nullopt;
  const std::string path = "/proc/" + std::to_string(pid);
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) return std::nullopt;
  return ProcDirectory(pid, std::move(fd));
}

std::vector<pid_t> ProcDirectory::allPids() {
  std::vector<pid_t> pids;
  DIR* dir = ::opendir("/proc");
  if (dir == nullptr) return pids;
  while (const dirent* entry = ::readdir(dir)) {
    if (auto pid = parseDecimal<pid_t>(entry->d_name); pid && *pid > 0) pids.push_back(*pid);
  }
  ::closedir(dir);
  return pids;
}

std::string ProcDirectory::read(const char* name) const {
  const UniqueFd file(::openat(fd_.get(), name, O_RDONLY | O_CLOEXEC));
  return file ? system_calls::readToEnd(file.get()) : std::string();
}

std::string ProcDirectory::readLink(const char* name) const {
  char target[4096];
  const ssize_t n = ::readlinkat(fd_.get(), name, target, sizeof target);
  return n > 0 && static_cast<std::size_t>(n) < sizeof target
             ? std::string(target, static_cast<std::size_t>(n))
             : std::string();
}

bool ProcDirectory::holdsSocket(ino_t inode) const {
  const int fds = ::openat(fd_.get(), "fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fds < 0) return false;
  DIR* dir = ::fdopendir(fds);
  if (dir == nullptr) {
    ::close(fds);
    return false;
  }
  const std::string wanted = "socket:[" + std::to_string(inode) + "]";
  char target[64];
  bool found = false;
  while (const dirent* entry = ::readdir(dir)) {
    const ssize_t n = ::readlinkat(fds, entry->d_name, target, sizeof target);
    if (n > 0 && std::string_view(target, static_cast<std::size_t>(n)) == wanted) {
      found = true;
      break;
    }
  }
  ::closedir(dir);
  return found;
}

}  // namespace kestravine
