#pragma once

#include <mutex>
#include <vector>

#include "platform/platform.h"

namespace kestravine {

// The SIGKILL follow-ups of cancels that are scheduled and not yet carried out, process-wide, and
// who waits for none to be left: the launcher does not end before a cancelled tree is killed.
//
// Threading: any thread; waiting tasks are posted to the main queue.
class PendingKills {
 public:
  static PendingKills& instance();

  void add();
  // One follow-up has been carried out; the waiting tasks run once none is left.
  void done();
  // Posts `task` once none is pending; right away (but never from inside this call) if none is.
  void whenNone(Task task);

 private:
  std::mutex mutex_;
  int count_ = 0;              // guarded by mutex_
  std::vector<Task> waiting_;  // guarded by mutex_
};

}  // namespace kestravine
