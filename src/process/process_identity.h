#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace kestravine {

// One process for good: its pid together with its start time (clock ticks after boot, field 22
// of /proc/<pid>/stat). A pid is recycled once its process has been reaped, but the new process
// starts later, so the pair never names two processes.
//
// Threading: a value type; any thread.
struct ProcessIdentity {
  pid_t pid = -1;
  std::uint64_t startTime = 0;
  pid_t parent = 0;  // when it was read: a process is handed to another parent when its own dies

  // The process that `pid` names now; none if there is none.
  static std::optional<ProcessIdentity> of(pid_t pid);
  // The identity in the text of a /proc/<pid>/stat file; none if it does not hold one.
  static std::optional<ProcessIdentity> fromStat(pid_t pid, std::string_view stat);

  // Sends `signal` if the pid still names this same process, whatever its parent now is.
  // Free of races: the check and the signal go through one pidfd.
  bool signal(int signal) const;

  friend bool operator==(const ProcessIdentity&, const ProcessIdentity&) = default;
};

}  // namespace kestravine
