#include "process/child.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "env/ctx.h"
#include "env/environment.h"
#include "platform/platform.h"
#include "process/line_splitter.h"
#include "process/process_identity.h"
#include "process/process_listing.h"
#include "process/spawn.h"
#include "process/step_mark.h"

namespace kestravine {

namespace {

constexpr auto kKillDelay = std::chrono::seconds(10);
// Listings of the step's processes in one SIGKILL follow-up, at most: each finds only what the
// last one's processes started before they were killed.
constexpr int kMaxKillRounds = 10;
constexpr std::size_t kChunkSize = 64 * 1024;
// Lines waiting on the main queue, in bytes (text plus a task's bookkeeping). Past this the
// reader stops reading, so the pipe fills and a flooding command waits for the window, as it
// would for a terminal: memory stays bounded and no line is dropped.
constexpr std::size_t kMaxPendingBytes = 1 << 20;
constexpr std::size_t kLineOverhead = 8;
// How long one delivery task hands lines to the main thread before it lets others run.
constexpr auto kSlice = std::chrono::milliseconds(2);

// Kill follow-ups scheduled and not yet carried out, process-wide, and who waits for none to
// be left. The launcher does not end before they have run.
struct PendingKills {
  std::mutex mutex;
  int count = 0;               // guarded by mutex
  std::vector<Task> whenNone;  // guarded by mutex

  static PendingKills& instance() {
    static PendingKills& pending = *new PendingKills;  // outlives threads still running at exit
    return pending;
  }
  void add() {
    std::lock_guard lock(mutex);
    ++count;
  }
  void done() {
    std::vector<Task> ready;
    {
      std::lock_guard lock(mutex);
      if (--count == 0) ready.swap(whenNone);
    }
    for (auto& task : ready) platform().post(std::move(task));
  }
  void wait(Task task) {
    {
      std::lock_guard lock(mutex);
      if (count > 0) {
        whenNone.push_back(std::move(task));
        return;
      }
    }
    platform().post(std::move(task));
  }
};

// The lines of one read, in one block. The reader allocates once per read, not once per line:
// the main thread frees what the reader allocated, and per-line frees would keep it queueing on
// the reader's allocator lock while a command floods its output.
struct Batch {
  std::string text;
  std::vector<std::size_t> ends;  // where each line ends in text
};

// Carries lines from the reader to the main thread, in output order, with the back-pressure
// described above. The main queue holds at most one delivery task of it at a time: it delivers
// lines one by one for a short slice and, if more wait, queues itself again behind whatever else
// waits (an exit report, a timer), so a flood never holds the main thread for long.
class LineDelivery {
 public:
  explicit LineDelivery(std::function<void(std::string)> onLine) : onLine_(std::move(onLine)) {}

  // Reader thread.
  static void post(const std::shared_ptr<LineDelivery>& self, Batch& batch) {
    if (batch.ends.empty()) return;
    const std::size_t bytes = batch.text.size() + batch.ends.size() * kLineOverhead;
    bool schedule = false;
    {
      std::unique_lock lock(self->mutex_);
      self->room_.wait(lock, [&] { return self->pending_ <= kMaxPendingBytes; });
      self->pending_ += bytes;
      self->batches_.push_back({std::move(batch), bytes});
      schedule = !std::exchange(self->scheduled_, true);
    }
    batch = {};
    if (schedule) platform().post([self] { self->deliver(self); });
  }

 private:
  struct Pending {
    Batch batch;
    std::size_t bytes;
  };

  // Main thread.
  void deliver(const std::shared_ptr<LineDelivery>& self) {
    const auto until = std::chrono::steady_clock::now() + kSlice;
    for (;;) {
      if (next_ == current_.batch.ends.size()) {
        std::lock_guard lock(mutex_);
        pending_ -= current_.bytes;
        if (pending_ <= kMaxPendingBytes) room_.notify_one();
        current_ = {};
        next_ = 0;
        if (batches_.empty()) {
          scheduled_ = false;
          return;
        }
        current_ = std::move(batches_.front());
        batches_.pop_front();
      }
      if (std::chrono::steady_clock::now() >= until) {
        platform().post([self] { self->deliver(self); });
        return;
      }
      const std::size_t begin = next_ == 0 ? 0 : current_.batch.ends[next_ - 1];
      const std::size_t end = current_.batch.ends[next_++];
      onLine_(current_.batch.text.substr(begin, end - begin));
    }
  }

  std::function<void(std::string)> onLine_;
  std::mutex mutex_;
  std::condition_variable room_;
  std::size_t pending_ = 0;      // guarded by mutex_
  std::deque<Pending> batches_;  // guarded by mutex_
  bool scheduled_ = false;       // guarded by mutex_: a delivery task is queued or running
  Pending current_{{}, 0};       // main thread only: the batch being delivered
  std::size_t next_ = 0;         // main thread only: its next line
};

// One command whose output or exit report is still on its way to the main queue. Each thread
// that delivers one of them holds it until after its last post, so the count drops only once
// both have been queued.
class OnItsWay {
 public:
  OnItsWay() { ++count(); }
  ~OnItsWay() { --count(); }
  OnItsWay(const OnItsWay&) = delete;
  OnItsWay& operator=(const OnItsWay&) = delete;
  static std::atomic<std::size_t>& count() {
    static std::atomic<std::size_t> commands{0};
    return commands;
  }
};

void readOutput(int fd, std::shared_ptr<LineDelivery> delivery, std::shared_ptr<OnItsWay>) {
  LineSplitter splitter;
  Batch lines;
  const LineSplitter::LineSink collect = [&lines](std::string_view line) {
    lines.text += line;
    lines.ends.push_back(lines.text.size());
  };
  std::vector<char> buffer(kChunkSize);
  for (;;) {
    ssize_t n = ::read(fd, buffer.data(), buffer.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    splitter.feed(std::string_view(buffer.data(), static_cast<std::size_t>(n)), collect);
    LineDelivery::post(delivery, lines);
  }
  splitter.finish(collect);
  LineDelivery::post(delivery, lines);
  close(fd);
}

std::vector<std::string> composeEnvironment(std::map<std::string, std::string> extraEnv,
                                            const StepMark& mark) {
  std::map<std::string, std::string> env = processEnvironment();
  auto path = env.find("PATH");
  env["PATH"] = Ctx::kestravineHome() + "/node/bin" + ":" +
                (path != env.end() ? path->second : "/usr/bin:/bin:/usr/sbin:/sbin");
  for (auto& [name, value] : extraEnv) env.insert_or_assign(name, std::move(value));
  std::vector<std::string> entries;
  entries.reserve(env.size() + 1);
  env.erase(std::string(StepMark::kVariable));
  for (const auto& [name, value] : env) entries.push_back(name + "=" + value);
  entries.push_back(mark.entry());
  return entries;
}

}  // namespace

// What the exit watcher and the kill follow-up share with the Child: the pid, whether it has
// been reaped, and the step's mark. `reapMutex` is held while the pid is signalled and while it
// is reaped, so a signal can only reach the child itself or its unreaped zombie, never a
// recycled number.
struct Child::Process {
  pid_t pid = -1;
  StepMark mark = StepMark::fresh();
  std::mutex reapMutex;
  bool reaped = false;  // guarded by reapMutex

  // The SIGTERM round: every current descendant (last listed first), every other process that
  // carries the step's mark (detached servers), then the command. Returns who got it; none if
  // there is nothing to follow up: the command has been reaped (its former descendants belong to
  // others then) and nothing carries the mark.
  std::optional<std::vector<ProcessIdentity>> terminate() {
    std::lock_guard lock(reapMutex);
    std::vector<ProcessIdentity> signalled =
        reaped ? std::vector<ProcessIdentity>{} : signalTree(SIGTERM);
    const std::set<ProcessIdentity> tree(signalled.begin(), signalled.end());
    for (const auto& carrier : mark.carriers()) {
      if (!isCommand(carrier) && !tree.contains(carrier) && carrier.signal(SIGTERM))
        signalled.push_back(carrier);
    }
    if (reaped) return signalled.empty() ? std::nullopt : std::optional(std::move(signalled));
    ::kill(pid, SIGTERM);
    return signalled;
  }

  // The SIGKILL follow-up: whatever descends from the command now (a fresh listing: a TERM trap
  // may have started more), everything that got the SIGTERM round and still lives, also when
  // its parent has died and it has been handed to another, whatever carries the mark now, then
  // the command.
  void kill(const std::vector<ProcessIdentity>& terminated) {
    std::lock_guard lock(reapMutex);
    if (!reaped) signalTree(SIGKILL);
    for (const auto& identity : terminated) identity.signal(SIGKILL);
    // A carrier may have started another between the listing and its end; list again until a
    // listing finds none not yet killed (a killed process cannot start more).
    std::set<ProcessIdentity> killed(terminated.begin(), terminated.end());
    for (int round = 0; round < kMaxKillRounds; ++round) {
      bool more = false;
      for (const auto& carrier : mark.carriers()) {
        if (isCommand(carrier)) continue;  // it comes last
        if (killed.insert(carrier).second && carrier.signal(SIGKILL)) more = true;
      }
      if (!more) break;
    }
    if (!reaped) ::kill(pid, SIGKILL);
  }

  // The command carries the mark too, but is signalled last and by its pid, which stays its own
  // until it is reaped.
  bool isCommand(const ProcessIdentity& process) const { return !reaped && process.pid == pid; }

  // Sends `signal` to every process that descends from the command now, last listed first, each
  // through its identity: a pid whose parent is not in the tree was given to another process
  // since the listing, and the identity cannot reach a process that took the pid after it was
  // read. Returns who got it. Only while the command is unreaped, so `pid` is still its own.
  std::vector<ProcessIdentity> signalTree(int signal) const {
    const std::vector<pid_t> tree = Child::descendants(pid);
    const std::set<pid_t> members(tree.begin(), tree.end());
    std::vector<ProcessIdentity> signalled;
    std::for_each(tree.rbegin(), tree.rend(), [&](pid_t p) {
      auto identity = ProcessIdentity::of(p);
      if (!identity || (identity->parent != pid && !members.contains(identity->parent))) return;
      if (identity->signal(signal)) signalled.push_back(*identity);
    });
    return signalled;
  }

  static void watchExit(std::shared_ptr<Process> self, std::function<void(std::int32_t)> onExit,
                        std::shared_ptr<OnItsWay>) {
    // Wait without reaping first, then reap under the lock, so the pid stays ours until then.
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(self->pid), &info, WEXITED | WNOWAIT) < 0 &&
           errno == EINTR) {
    }
    std::int32_t status = 0;
    {
      std::lock_guard lock(self->reapMutex);
      status = waitForExit(self->pid);
      self->reaped = true;
    }
    platform().post([onExit = std::move(onExit), status] { onExit(status); });
  }
};

Child::Child() : proc_(std::make_shared<Process>()) {}

Child::~Child() = default;

void Child::start(const std::string& program, const std::vector<std::string>& args,
                  std::optional<std::string> cwd, std::map<std::string, std::string> extraEnv,
                  std::function<void(std::string)> onLine,
                  std::function<void(std::int32_t)> onExit) {
  int fds[2];
  pid_t pid = -1;
  if (pipe2(fds, O_CLOEXEC) == 0) {
    pid = spawnProcess({program, args, std::move(cwd),
                        composeEnvironment(std::move(extraEnv), proc_->mark), fds[1]})
              .pid;
    // Only the child (and what it starts) may hold the write end, so the reader sees the end
    // of the output when they are done with it.
    close(fds[1]);
    if (pid < 0) close(fds[0]);
  }
  if (pid >= 0) {
    try {
      auto delivery = std::make_shared<LineDelivery>(onLine);
      auto onItsWay = std::make_shared<OnItsWay>();
      proc_->pid = pid;
      std::thread(Process::watchExit, proc_, onExit, onItsWay).detach();
      {
        std::lock_guard lock(lock_);
        runningFlag_ = true;
      }
      std::thread(readOutput, fds[0], std::move(delivery), std::move(onItsWay)).detach();
      return;
    } catch (const std::system_error&) {
      // No thread to be had: nobody could read the output or report the exit, so the command
      // must not run. Once the watcher runs, it reaps and reports; before, do it here.
      if (!runningFlag_) {
        ::kill(pid, SIGKILL);
        waitForExit(pid);
      }
      close(fds[0]);
      if (runningFlag_) return;
    }
  }
  platform().post([onLine, line = "起不来：" + program] { onLine(line); });
  platform().post([onExit = std::move(onExit)] { onExit(127); });
}

void Child::cancel() {
  {
    std::lock_guard lock(lock_);
    killed_ = true;
    if (!runningFlag_) return;
  }
  auto terminated = proc_->terminate();
  if (!terminated) return;  // ended and reaped, and nothing carries its mark
  PendingKills::instance().add();
  platform().runInBackgroundAfter(std::chrono::duration_cast<Delay>(kKillDelay),
                                  [proc = proc_, terminated = std::move(*terminated)] {
                                    proc->kill(terminated);
                                    PendingKills::instance().done();
                                  });
}

void Child::afterPendingKills(Task task) {
  PendingKills::instance().wait(std::move(task));
}

std::size_t Child::reportsOnTheirWay() {
  return OnItsWay::count();
}

bool Child::isRunning() const {
  std::lock_guard lock(lock_);
  return runningFlag_;
}

std::vector<pid_t> Child::descendants(pid_t root) {
  return process_listing::descendants(process_listing::parse(process_listing::read()), root);
}

}  // namespace kestravine
