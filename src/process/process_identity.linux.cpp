#include "process/process_identity.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "system/proc_directory.h"
#include "system/system_calls.h"
#include "text/decimal.h"

namespace kestravine {

namespace {

constexpr int kParentField = 4;
constexpr int kStartTimeField = 22;

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

std::optional<ProcessIdentity> ProcessIdentity::of(const ProcDirectory& dir) {
  return fromStat(dir.pid(), dir.read("stat"));
}

std::optional<ProcessIdentity> ProcessIdentity::of(pid_t pid) {
  const auto dir = ProcDirectory::open(pid);
  return dir ? of(*dir) : std::nullopt;
}

bool ProcessIdentity::signal(int signal) const {
  // The pidfd holds on to whatever process has the pid now; if that one still has our start
  // time, it is ours, and the signal cannot reach a successor.
  const UniqueFd pidfd(system_calls::pidfdOpen(pid));
  if (!pidfd && errno == ESRCH) return false;
  const auto now = of(pid);
  const bool same = now && now->startTime == startTime;
  if (!pidfd) return same && system_calls::sendSignal(pid, signal) == 0;
  return same && system_calls::pidfdSendSignal(pidfd.get(), signal) == 0;
}

}  // namespace kestravine
