#include "process/proc_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "env/decimal.h"

namespace kestravine {

std::optional<ProcDirectory> ProcDirectory::open(pid_t pid) {
  if (pid <= 0) return std::nullopt;
  const std::string path = "/proc/" + std::to_string(pid);
  const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  return ProcDirectory(pid, fd);
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

ProcDirectory::ProcDirectory(ProcDirectory&& other) noexcept
    : pid_(other.pid_), fd_(std::exchange(other.fd_, -1)) {}

ProcDirectory& ProcDirectory::operator=(ProcDirectory&& other) noexcept {
  std::swap(pid_, other.pid_);
  std::swap(fd_, other.fd_);
  return *this;
}

ProcDirectory::~ProcDirectory() {
  if (fd_ >= 0) ::close(fd_);
}

std::string ProcDirectory::read(const char* name) const {
  const int fd = ::openat(fd_, name, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  std::string text;
  char buffer[4096];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n > 0) {
      text.append(buffer, static_cast<std::size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      if (n < 0) text.clear();  // gone while being read: nothing is known
      break;
    }
  }
  ::close(fd);
  return text;
}

}  // namespace kestravine
