#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "process/output_progress.h"
#include "process/process_identity.h"
#include "process/reports_in_flight.h"
#include "process/step_mark.h"

namespace kestravine {

// One command as its exit watcher and a cancel's two rounds of signals know it: its pid, whether
// it has been reaped, and its step's mark. The pid is signalled and reaped under one lock, so a
// signal by pid can only reach the command itself or its unreaped zombie, never a recycled
// number; every other process is signalled through its identity.
//
// Threading: shared by the Child (main thread), the exit watcher and the kill follow-up (threads
// of their own). The pid and the mark are fixed before the exit watcher starts; everything else
// is used under the lock.
class CommandProcess {
 public:
  explicit CommandProcess(StepMark mark) : mark_(std::move(mark)) {}
  CommandProcess(const CommandProcess&) = delete;
  CommandProcess& operator=(const CommandProcess&) = delete;

  const StepMark& mark() const { return mark_; }
  // Once launched, before the exit watcher starts.
  void setPid(pid_t pid) { pid_ = pid; }

  // The SIGTERM round: every current descendant (last listed first), every other process that
  // carries the step's mark (detached servers), then the command. Returns who got it; none if
  // there is nothing to follow up: the command has been reaped (its former descendants belong to
  // others then) and nothing carries the mark.
  std::optional<std::vector<ProcessIdentity>> terminate();
  // The SIGKILL follow-up: whatever descends from the command now (a fresh listing: a TERM trap
  // may have started more), everything that got the SIGTERM round and still lives, also when its
  // parent has died and it has been handed to another, whatever carries the mark now, then the
  // command.
  void kill(const std::vector<ProcessIdentity>& terminated);
  // Sends `signal` to the command alone, while it is unreaped (so the pid is still its own).
  void signalCommand(int signal);

  // The exit watcher's thread: waits for the command's end, reaps it, and posts its status (exit
  // code, or the number of the ending signal) to `onExit` on the main queue, with its hold on
  // `inFlight`, behind the lines of all it wrote before it ended (`output`).
  static void watchExit(std::shared_ptr<CommandProcess> self,
                        std::function<void(std::int32_t)> onExit,
                        std::shared_ptr<ReportsInFlight> inFlight,
                        std::shared_ptr<OutputProgress> output);

 private:
  // The command carries the mark too, but is signalled last and by its pid, which stays its own
  // until it is reaped.
  bool isCommand(const ProcessIdentity& process) const { return !reaped_ && process.pid == pid_; }
  // Sends `signal` to every process that descends from the command now, last listed first, each
  // through its identity: a pid whose parent is not in the tree was given to another process
  // since the listing, and the identity cannot reach a process that took the pid after it was
  // read. Returns who got it. Only while the command is unreaped, so the pid is still its own.
  std::vector<ProcessIdentity> signalTree(int signal) const;

  pid_t pid_ = -1;
  const StepMark mark_;
  std::mutex reapMutex_;
  bool reaped_ = false;  // guarded by reapMutex_
};

}  // namespace kestravine
