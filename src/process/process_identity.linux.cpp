#include "process/process_identity.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "env/decimal.h"

namespace kestravine {

namespace {

constexpr int kParentField = 4;
constexpr int kStartTimeField = 22;

std::string readStat(pid_t pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/stat";
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  std::string text(1024, '\0');
  ssize_t n = 0;
  do {
    n = ::read(fd, text.data(), text.size());
  } while (n < 0 && errno == EINTR);
  ::close(fd);
  text.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
  return text;
}

}  // namespace

std::optional<ProcessIdentity> ProcessIdentity::fromStat(pid_t pid, std::string_view stat) {
  // The command name (field 2) stands in parentheses and may hold blanks and parentheses
  // itself; the fields after the last ')' are plain numbers and letters.
  const std::size_t close = stat.rfind(')');
  if (close == std::string_view::npos) return std::nullopt;
  std::string_view rest = stat.substr(close + 1);
  std::optional<pid_t> parent;
  for (int field = 3;; ++field) {
    const std::size_t begin = rest.find_first_not_of(' ');
    if (begin == std::string_view::npos) return std::nullopt;
    rest.remove_prefix(begin);
    const std::size_t end = std::min(rest.find_first_of(" \n"), rest.size());
    if (field == kParentField) parent = parseDecimal<pid_t>(rest.substr(0, end));
    if (field == kStartTimeField) {
      auto start = parseDecimal<std::uint64_t>(rest.substr(0, end));
      if (!start || !parent) return std::nullopt;
      return ProcessIdentity{pid, *start, *parent};
    }
    rest.remove_prefix(end);
  }
}

std::optional<ProcessIdentity> ProcessIdentity::of(pid_t pid) {
  if (pid <= 0) return std::nullopt;
  return fromStat(pid, readStat(pid));
}

bool ProcessIdentity::signal(int signal) const {
  // The pidfd holds on to whatever process has the pid now; if that one still has our start
  // time, it is ours, and the signal cannot reach a successor.
  // Through syscall(): glibc's own wrappers are not declared for C++ in every version.
  const auto fd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  if (fd < 0 && errno != ENOSYS) return false;
  const auto now = of(pid);
  const bool same = now && now->startTime == startTime;
  if (fd < 0) return same && ::kill(pid, signal) == 0;  // a kernel without pidfds: near enough
  const bool sent = same && ::syscall(SYS_pidfd_send_signal, fd, signal, nullptr, 0) == 0;
  ::close(fd);
  return sent;
}

}  // namespace kestravine
