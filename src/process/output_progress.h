#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace kestravine {

// How far a command's output reader has got, so that the exit watcher reports the exit only
// behind every line the command wrote before it ended: a launcher that leaves at a failure must
// not leave its last lines unread. What a process the command left behind writes later arrives
// later, as before; a flood from it never holds the exit back.
//
// Threading: the reader calls taking(), taken() and ended() on its thread; the watcher calls
// awaitWrittenSoFar() on its own.
class OutputProgress {
 public:
  // `pipe`: the read end, which the reader closes only after ended().
  explicit OutputProgress(int pipe) : pipe_(pipe) {}

  // Before bytes are taken off the pipe (it is readable), and once their lines are posted.
  void taking();
  void taken(std::size_t bytes);
  // The output has ended and its last lines are posted.
  void ended();

  // Blocks until every byte in the pipe now has been taken and its lines posted, or the output
  // has ended.
  void awaitWrittenSoFar();

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  const int pipe_;
  bool busy_ = false;
  bool ended_ = false;
  std::uint64_t taken_ = 0;
};

}  // namespace kestravine
