#include "process/child.h"

#include <signal.h>

#include <system_error>
#include <thread>

#include "env/ctx.h"
#include "env/environment.h"
#include "platform/platform.h"
#include "process/child_environment.h"
#include "process/command_process.h"
#include "process/line_delivery.h"
#include "process/output_reader.h"
#include "process/pending_kills.h"
#include "process/process_listing.h"
#include "process/reports_in_flight.h"
#include "system/spawn.h"
#include "system/system_calls.h"

namespace kestravine {

namespace {

constexpr auto kKillDelay = std::chrono::seconds(10);

}  // namespace

Child::Child() : proc_(std::make_shared<CommandProcess>(StepMark::fresh(Ctx::canonicalHome()))) {}

Child::~Child() = default;

void Child::start(const std::string& program, const std::vector<std::string>& args,
                  std::optional<std::string> cwd, std::map<std::string, std::string> extraEnv,
                  std::function<void(std::string)> onLine,
                  std::function<void(std::int32_t)> onExit) {
  auto spawned = spawnWithOutput({program, args, std::move(cwd),
                                  childEnvironment(processEnvironment(), Ctx::kestravineHome(),
                                                   std::move(extraEnv), proc_->mark()),
                                  -1});
  int error = spawned.error;
  if (spawned.pid >= 0) {
    try {
      auto delivery = LineDelivery::create(onLine);
      auto inFlight = std::make_shared<ReportsInFlight>();
      proc_->setPid(spawned.pid);
      // The reader first: it holds only the pipe and ends once the command is gone, so if the
      // watcher cannot be started either, killing and reaping the command here is all it takes.
      // Each thread's task hands its holds on to the call, keeping no copy of its own: the count
      // of reports on their way must drop with the last post to the main queue, never later on
      // this thread.
      auto progress = std::make_shared<OutputProgress>(spawned.output.get());
      system_calls::startThread([output = std::make_shared<UniqueFd>(std::move(spawned.output)),
                                 delivery, inFlight, progress]() mutable {
        readOutput(std::move(*output), std::move(delivery), std::move(inFlight),
                   std::move(progress));
      });
      system_calls::startThread([proc = proc_, onExit, inFlight = std::move(inFlight),
                                 progress = std::move(progress)]() mutable {
        CommandProcess::watchExit(std::move(proc), std::move(onExit), std::move(inFlight),
                                  std::move(progress));
      });
      std::lock_guard lock(lock_);
      runningFlag_ = true;
      return;
    } catch (const std::system_error& refused) {
      // No thread to be had: nobody could read the output or report the exit, so the command
      // must not run.
      error = refused.code().value();
      system_calls::sendSignal(spawned.pid, SIGKILL);
      waitForExit(spawned.pid);
    }
  }
  launchError_ = error;
  platform().post([onLine, line = "起不来：" + program] { onLine(line); });
  platform().post([onLine, line = "原因：" + system_calls::describeError(error)] { onLine(line); });
  platform().post([onExit = std::move(onExit)] { onExit(127); });
}

void Child::cancel() {
  {
    std::lock_guard lock(lock_);
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

void Child::stop() {
  if (isRunning()) proc_->signalCommand(SIGTERM);
}

void Child::afterPendingKills(Task task) {
  PendingKills::instance().whenNone(std::move(task));
}

std::size_t Child::reportsInFlight() {
  return ReportsInFlight::count();
}

const StepMark& Child::mark() const {
  return proc_->mark();
}

bool Child::isRunning() const {
  std::lock_guard lock(lock_);
  return runningFlag_;
}

std::vector<pid_t> Child::descendants(pid_t root) {
  return process_listing::descendants(process_listing::parse(process_listing::read()), root);
}

}  // namespace kestravine
