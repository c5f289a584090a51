#pragma once

#include <sys/types.h>

#include <compare>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

namespace kestravine {

class ProcDirectory;

// One process for good: its pid together with its start time (clock ticks after boot, field 22
// of /proc/<pid>/stat). A pid is recycled once its process has been reaped, but the new process
// starts later, so the pair never names two processes.
//
// Threading: a value type; any thread.
struct ProcessIdentity {
  pid_t pid = -1;
  std::uint64_t startTime = 0;
  pid_t parent = 0;  // when it was read: a process is handed to another parent when its own dies

  // For sets of processes.
  friend auto operator<=>(const ProcessIdentity& a, const ProcessIdentity& b) {
    return std::pair(a.pid, a.startTime) <=> std::pair(b.pid, b.startTime);
  }

  // The process that `pid` names now; none if there is none.
  static std::optional<ProcessIdentity> of(pid_t pid);
  // The process whose /proc directory `dir` holds open; none once it has gone.
  static std::optional<ProcessIdentity> of(const ProcDirectory& dir);
  // The identity in the text of a /proc/<pid>/stat file; none if it does not hold one.
  static std::optional<ProcessIdentity> fromStat(pid_t pid, std::string_view stat);

  // Sends `signal` if the pid still names this same process, whatever its parent now is.
  // Free of races: the check and the signal go through one pidfd. Where pidfds cannot be had
  // (an old kernel, a sandbox that denies them, no descriptor left), the start time is checked
  // just before a plain kill(), which leaves only that instant for the pid to change hands.
  bool signal(int signal) const;

  friend bool operator==(const ProcessIdentity&, const ProcessIdentity&) = default;
};

}  // namespace kestravine
