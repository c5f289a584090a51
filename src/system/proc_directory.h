#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "system/unique_fd.h"

namespace kestravine {

// One process's /proc directory, held open. Every file read through it belongs to the process
// the pid named when it was opened: once that process has gone, reads fail (ESRCH), even after
// its pid has been given to another. So what two reads say is always about one process.
//
// Threading: one instance belongs to one thread; the static functions run on any.
class ProcDirectory {
 public:
  // None if no process has this pid.
  static std::optional<ProcDirectory> open(pid_t pid);
  // The pids of every process there is now, in no particular order.
  static std::vector<pid_t> allPids();

  pid_t pid() const { return pid_; }
  // The whole file `name`; empty if it cannot be read (the process has gone, it belongs to
  // another user, it is a zombie whose memory is gone).
  std::string read(const char* name) const;
  // Where the link `name` ("exe", "cwd") points; empty if it cannot be read (another user's).
  std::string readLink(const char* name) const;
  // Whether one of the process's descriptors is the socket `inode`; false where they cannot
  // be seen (another user's process).
  bool holdsSocket(ino_t inode) const;

 private:
  ProcDirectory(pid_t pid, UniqueFd fd) : pid_(pid), fd_(std::move(fd)) {}

  pid_t pid_;
  UniqueFd fd_;
};

}  // namespace kestravine
