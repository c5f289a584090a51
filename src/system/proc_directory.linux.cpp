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

}  // namespace kestravine
