#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "system/unique_fd.h"

namespace kestravine {

struct SpawnRequest {
  std::string program;             // path of the executable, used as given
  std::vector<std::string> args;   // without the program name
  std::optional<std::string> cwd;  // none: the launcher's own working directory
  // "NAME=value" entries replacing the inherited environment; none: inherit it.
  std::optional<std::vector<std::string>> environment;
  int outputFd = -1;  // becomes the child's stdout and stderr; -1 leaves both inherited
};

// Starts a process reading from /dev/null, as the leader of a session of its own with no
// controlling terminal. Returns its pid, or the errno of a failed launch (no process then
// exists). The child gets descriptors 0, 1 and 2 only: every other one is closed in it,
// inherited ones included. Stateless; any thread.
struct SpawnResult {
  pid_t pid = -1;
  int error = 0;
};
SpawnResult spawnProcess(const SpawnRequest& request);

// Starts a process as spawnProcess() does, with its stdout and stderr into a new pipe; gives the
// pid and the pipe's read end. Only the process (and what it starts) holds the write end, so a
// reader sees the end of the output when they are done with it. A pid of -1, no read end and
// the errno in `error` when the pipe or the launch failed.
struct SpawnedWithOutput {
  pid_t pid = -1;
  UniqueFd output;
  int error = 0;
};
SpawnedWithOutput spawnWithOutput(SpawnRequest request);

// Waits for `pid` to end and reaps it. Returns the exit code, or the signal number that ended
// it. Retries on EINTR.
int waitForExit(pid_t pid);
// Decodes a wait status the way callers see it: exit code, or the number of the ending signal.
int exitCodeFromStatus(int status);

}  // namespace kestravine
