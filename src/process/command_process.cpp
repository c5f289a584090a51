#include "process/command_process.h"

#include <signal.h>

#include <algorithm>
#include <set>

#include "platform/platform.h"
#include "process/process_listing.h"
#include "system/spawn.h"
#include "system/system_calls.h"

namespace kestravine {

namespace {

// Listings of the step's processes in one SIGKILL follow-up, at most: each finds only what the
// last one's processes started before they were killed.
constexpr int kMaxKillRounds = 10;

}  // namespace

std::optional<std::vector<ProcessIdentity>> CommandProcess::terminate() {
  std::lock_guard lock(reapMutex_);
  std::vector<ProcessIdentity> signalled =
      reaped_ ? std::vector<ProcessIdentity>{} : signalTree(SIGTERM);
  const std::set<ProcessIdentity> tree(signalled.begin(), signalled.end());
  for (const auto& carrier : mark_.carriers()) {
    if (!isCommand(carrier) && !tree.contains(carrier) && carrier.signal(SIGTERM))
      signalled.push_back(carrier);
  }
  if (reaped_) return signalled.empty() ? std::nullopt : std::optional(std::move(signalled));
  system_calls::sendSignal(pid_, SIGTERM);
  return signalled;
}

void CommandProcess::kill(const std::vector<ProcessIdentity>& terminated) {
  std::lock_guard lock(reapMutex_);
  if (!reaped_) signalTree(SIGKILL);
  for (const auto& identity : terminated) identity.signal(SIGKILL);
  // A carrier may have started another between the listing and its end; list again until a
  // listing finds none not yet killed (a killed process cannot start more).
  std::set<ProcessIdentity> killed(terminated.begin(), terminated.end());
  for (int round = 0; round < kMaxKillRounds; ++round) {
    bool more = false;
    for (const auto& carrier : mark_.carriers()) {
      if (isCommand(carrier)) continue;  // it comes last
      if (killed.insert(carrier).second && carrier.signal(SIGKILL)) more = true;
    }
    if (!more) break;
  }
  if (!reaped_) system_calls::sendSignal(pid_, SIGKILL);
}

void CommandProcess::signalCommand(int signal) {
  std::lock_guard lock(reapMutex_);
  if (!reaped_) system_calls::sendSignal(pid_, signal);
}

std::vector<ProcessIdentity> CommandProcess::signalTree(int signal) const {
  const std::vector<pid_t> tree =
      process_listing::descendants(process_listing::parse(process_listing::read()), pid_);
  const std::set<pid_t> members(tree.begin(), tree.end());
  std::vector<ProcessIdentity> signalled;
  std::for_each(tree.rbegin(), tree.rend(), [&](pid_t p) {
    auto identity = ProcessIdentity::of(p);
    if (!identity || (identity->parent != pid_ && !members.contains(identity->parent))) return;
    if (identity->signal(signal)) signalled.push_back(*identity);
  });
  return signalled;
}

void CommandProcess::watchExit(std::shared_ptr<CommandProcess> self,
                               std::function<void(std::int32_t)> onExit,
                               std::shared_ptr<ReportsInFlight> inFlight,
                               std::shared_ptr<OutputProgress> output) {
  // Wait without reaping first, then reap under the lock, so the pid stays ours until then.
  system_calls::awaitExit(self->pid_);
  std::int32_t status = 0;
  {
    std::lock_guard lock(self->reapMutex_);
    status = waitForExit(self->pid_);
    self->reaped_ = true;
  }
  output->awaitWrittenSoFar();  // the main queue keeps order: the lines come first
  platform().post(
      [onExit = std::move(onExit), status, inFlight = std::move(inFlight)] { onExit(status); });
}

}  // namespace kestravine
