#pragma once

#include <atomic>
#include <cstddef>

namespace kestravine {

// One command whose output lines or exit report are still in flight to the main queue; count()
// is how many such commands there are. The output reader and the exit watcher each hand it to
// the main queue with their last post, so the count drops only once both have queued
// everything, and it drops on the main thread: whoever waits there for the count is woken by the
// post that lowers it.
//
// Threading: any thread.
class ReportsInFlight {
 public:
  ReportsInFlight() { ++count(); }
  ~ReportsInFlight() { --count(); }
  ReportsInFlight(const ReportsInFlight&) = delete;
  ReportsInFlight& operator=(const ReportsInFlight&) = delete;

  static std::atomic<std::size_t>& count() {
    static std::atomic<std::size_t> commands{0};
    return commands;
  }
};

}  // namespace kestravine
