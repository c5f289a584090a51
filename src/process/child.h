#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kestravine {

class CommandProcess;
class StepMark;

// One external command: runs it with the product's search path and extra variables, delivers
// its merged stdout and stderr as cleaned, non-empty lines and its exit status, and can stop it
// together with every process it started.
//
// Threading: start(), cancel() and isRunning() are called on the main thread (isRunning() may
// be called from any). onLine and onExit always run on the main queue, never from inside
// start(); lines come in slices of at most a few milliseconds, each slice a task of its own. One
// output reader thread and one exit watcher thread per command hold only the pipe, the callbacks
// and the shared process record, never the Child: a Child destroyed while its command runs leaves
// the command, its output and its exit report running. `lock_` guards only the running flag; no
// callback and no other lock runs under it.
class Child {
 public:
  Child();
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // Starts `program` (a path, used as given) with `args` (without the program name), in `cwd`
  // or the launcher's own working directory. The environment is the launcher's, PATH set to
  // <product home>/node/bin:<launcher PATH or /usr/bin:/bin:/usr/sbin:/sbin>, then `extraEnv`
  // laid over it, and a mark of this command's own (KESTRAVINE_STEP) that everything it starts
  // inherits. stdin is /dev/null, and the command leads a session of its own. Lines arrive in
  // output order, as LineSplitter gives them; the exit status (exit code,
  // or the number of the ending signal) arrives once, in no fixed order with the lines, and
  // lines keep coming for as long as any process holding the output keeps writing. A launch
  // that fails gives exactly the line "起不来：" + program, then one with the reason ("原因："
  // and the system's message for the error with its name), then exit status 127.
  // Precondition: called at most once per Child.
  void start(const std::string& program, const std::vector<std::string>& args,
             std::optional<std::string> cwd, std::map<std::string, std::string> extraEnv,
             std::function<void(std::string)> onLine, std::function<void(std::int32_t)> onExit);

  // Sends SIGTERM to every descendant of the command, to every other process that carries its
  // mark (a server that detached itself, whoever its parent now is), then to the command; and 10
  // seconds later SIGKILL to whatever then descends from it or carries the mark, to every
  // process that got the SIGTERM and is still the same process, and to the command. Each process
  // is signalled through its identity, so a recycled pid is never signalled. Once the command has
  // been reaped, only what carries the mark is. Processes of other commands are never signalled.
  // Suppresses no line and no exit report. Blocks while "/bin/ps" lists the processes and /proc
  // is searched for the mark.
  void cancel();

  // Sends SIGTERM to the command alone, with no follow-up: for a command that starts nothing and
  // ends on SIGTERM (the readiness probe's curl). Nothing once it has been reaped.
  void stop();

  // Runs `task` on the main queue once every SIGKILL follow-up scheduled by a cancel, of any
  // Child, has been carried out; right away (but never from inside this call) if none is
  // pending. The launcher ends through this, so no cancelled tree outlives it.
  static void afterPendingKills(std::function<void()> task);

  // How many commands, of every Child, still have output or an exit report on the way to the
  // main queue. Once it is 0, everything they will deliver has been queued: for a caller that
  // must know that nothing more is coming (tests check what did not happen against it).
  static std::size_t reportsInFlight();

  // The mark everything the command starts carries; a copy outlives the Child and still finds
  // what the command left running.
  const StepMark& mark() const;

  // The design's name, which means "was launched": true from a successful launch on, also
  // after the command has ended.
  bool isRunning() const;
  // Why the command could not be started (an errno value: no process, pipe or thread to be
  // had), once start() has returned; 0 when it was started. Main thread.
  int launchError() const { return launchError_; }

  // Every process descending from `root` according to "/bin/ps", `root` excluded, each once.
  // Any thread.
  static std::vector<pid_t> descendants(pid_t root);

 private:
  std::shared_ptr<CommandProcess> proc_;
  mutable std::mutex lock_;
  bool runningFlag_ = false;  // guarded by lock_
  int launchError_ = 0;
};

}  // namespace kestravine
