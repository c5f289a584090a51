#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kestravine {

// The lines of one read, in one block. The reader allocates once per read, not once per line:
// the main thread frees what the reader allocated, and per-line frees would keep it queueing on
// the reader's allocator lock while a command floods its output.
struct LineBatch {
  std::string text;
  std::vector<std::size_t> ends;  // where each line ends in text
};

// Carries one command's lines from its output reader to the main thread, in output order.
//
// Back-pressure: past kMaxPendingBytes of lines waiting on the main queue, post() blocks, so the
// reader stops reading, the pipe fills and a flooding command waits for the window, as it would
// for a terminal: memory stays bounded and no line is dropped. The main queue holds at most one
// delivery task at a time: it hands lines to `onLine` one by one for kSlice and, if more wait,
// queues itself again behind whatever else waits (an exit report, a timer), so a flood never
// holds the main thread for long.
//
// Threading: post() on the reader thread; `onLine` runs on the main queue; held() anywhere.
// Shared by the two.
class LineDelivery : public std::enable_shared_from_this<LineDelivery> {
 public:
  static constexpr std::size_t kMaxPendingBytes = 1 << 20;  // text plus kLineOverhead a line
  static constexpr std::size_t kLineOverhead = 8;
  static constexpr auto kSlice = std::chrono::milliseconds(2);

  static std::shared_ptr<LineDelivery> create(std::function<void(std::string)> onLine);

  // Queues the lines of `batch` (and empties it); blocks while too much waits already.
  void post(LineBatch& batch);
  // How many posts are blocked now, waiting for room.
  std::size_t held() const;

 private:
  struct Pending {
    LineBatch batch;
    std::size_t bytes = 0;
  };

  explicit LineDelivery(std::function<void(std::string)> onLine) : onLine_(std::move(onLine)) {}
  void deliver();

  std::function<void(std::string)> onLine_;
  mutable std::mutex mutex_;
  std::condition_variable room_;
  std::size_t pending_ = 0;      // guarded by mutex_
  std::size_t held_ = 0;         // guarded by mutex_
  std::deque<Pending> batches_;  // guarded by mutex_
  bool scheduled_ = false;       // guarded by mutex_: a delivery task is queued or running
  Pending current_;              // main thread only: the batch being delivered
  std::size_t next_ = 0;         // main thread only: its next line
};

}  // namespace kestravine
