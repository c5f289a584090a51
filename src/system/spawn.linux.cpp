#include "system/spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "system/system_calls.h"

extern char** environ;

namespace kestravine {

namespace {

std::vector<char*> pointers(const std::vector<std::string>& strings) {
  std::vector<char*> result;
  result.reserve(strings.size() + 1);
  for (const auto& s : strings) result.push_back(const_cast<char*>(s.c_str()));
  result.push_back(nullptr);
  return result;
}

class Attributes {
 public:
  Attributes() {
    posix_spawnattr_init(&attr_);
    posix_spawn_file_actions_init(&actions_);
  }
  ~Attributes() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attr_);
  }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  posix_spawnattr_t attr_;
  posix_spawn_file_actions_t actions_;
};

}  // namespace

SpawnResult spawnProcess(const SpawnRequest& request) {
  Attributes a;
  // The calling thread may block signals, and the launcher's toolkit may ignore some: the
  // child must start with default dispositions and an empty mask, or SIGTERM would not end it.
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&a.attr_, &none);
  posix_spawnattr_setsigdefault(&a.attr_, &all);
  // A session of its own, without a controlling terminal: a terminal's Ctrl-C or hang-up reaches
  // the launcher alone, which decides what becomes of the command, and a script that asks the
  // terminal itself (sudo's password prompt) fails at once with its own message rather than
  // stopping in the background.
  posix_spawnattr_setflags(&a.attr_,
                           POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);

  // A question gets the end of its input at once, never the user's terminal or whatever the
  // desktop session left on the launcher's stdin.
  posix_spawn_file_actions_addopen(&a.actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);

  if (request.outputFd >= 0) {
    // dup2 clears close-on-exec on the copies only; the original stays closed in the child.
    posix_spawn_file_actions_adddup2(&a.actions_, request.outputFd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&a.actions_, request.outputFd, STDERR_FILENO);
  }
  // Close-on-exec covers only what the launcher opens itself; whatever it inherited from the
  // program that started it must not reach the product's long-lived services either.
  posix_spawn_file_actions_addclosefrom_np(&a.actions_, STDERR_FILENO + 1);
  if (request.cwd) posix_spawn_file_actions_addchdir_np(&a.actions_, request.cwd->c_str());

  std::vector<std::string> argvStrings;
  argvStrings.reserve(request.args.size() + 1);
  argvStrings.push_back(request.program);
  argvStrings.insert(argvStrings.end(), request.args.begin(), request.args.end());
  std::vector<char*> argv = pointers(argvStrings);
  std::vector<char*> envp;
  if (request.environment) envp = pointers(*request.environment);

  SpawnResult result;
  // glibc reports a failed exec (missing file, bad cwd) as posix_spawn's own result.
  result.error = posix_spawn(&result.pid, request.program.c_str(), &a.actions_, &a.attr_,
                             argv.data(), request.environment ? envp.data() : environ);
  if (result.error != 0) result.pid = -1;
  return result;
}

SpawnedWithOutput spawnWithOutput(SpawnRequest request) {
  auto pipe = system_calls::makePipe();
  if (!pipe) return {-1, UniqueFd(), errno};
  request.outputFd = pipe->write.get();
  const SpawnResult spawned = spawnProcess(request);
  pipe->write.reset();
  if (spawned.pid < 0) return {-1, UniqueFd(), spawned.error};
  return {spawned.pid, std::move(pipe->read), 0};
}

int exitCodeFromStatus(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return WTERMSIG(status);
  return status;
}

int waitForExit(pid_t pid) {
  int status = 0;
  if (system_calls::retryOnInterrupt([&] { return ::waitpid(pid, &status, 0); }) < 0) return 127;
  return exitCodeFromStatus(status);
}

}  // namespace kestravine
