#include "process/pending_kills.h"

namespace kestravine {

PendingKills& PendingKills::instance() {
  static PendingKills& pending = *new PendingKills;  // outlives threads still running at exit
  return pending;
}

void PendingKills::add() {
  std::lock_guard lock(mutex_);
  ++count_;
}

void PendingKills::done() {
  std::vector<Task> ready;
  {
    std::lock_guard lock(mutex_);
    if (--count_ == 0) ready.swap(waiting_);
  }
  for (auto& task : ready) platform().post(std::move(task));
}

void PendingKills::whenNone(Task task) {
  {
    std::lock_guard lock(mutex_);
    if (count_ > 0) {
      waiting_.push_back(std::move(task));
      return;
    }
  }
  platform().post(std::move(task));
}

}  // namespace kestravine
