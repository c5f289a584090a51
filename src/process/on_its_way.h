#pragma once

#include <atomic>
#include <cstddef>

namespace kestravine {

// One command whose output or exit report is still on its way to the main queue. The output
// reader and the exit watcher each hand it to the main queue with their last post, so the count
// of such commands drops only once both have queued everything, and it drops on the main thread:
// whoever waits there for the count is woken by the post that lowers it.
//
// Threading: any thread.
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

}  // namespace kestravine
