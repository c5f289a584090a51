#include "process/output_progress.h"

#include <sys/ioctl.h>

namespace kestravine {

void OutputProgress::taking() {
  std::lock_guard lock(mutex_);
  busy_ = true;
}

void OutputProgress::taken(std::size_t bytes) {
  {
    std::lock_guard lock(mutex_);
    busy_ = false;
    taken_ += bytes;
  }
  changed_.notify_all();
}

void OutputProgress::ended() {
  {
    std::lock_guard lock(mutex_);
    ended_ = true;
  }
  changed_.notify_all();
}

void OutputProgress::awaitWrittenSoFar() {
  std::unique_lock lock(mutex_);
  // Bytes the reader holds are in neither count: wait until it holds none.
  changed_.wait(lock, [this] { return ended_ || !busy_; });
  int waiting = 0;
  if (ended_ || ::ioctl(pipe_, FIONREAD, &waiting) != 0) return;
  const std::uint64_t target = taken_ + static_cast<std::uint64_t>(waiting);
  changed_.wait(lock, [&] { return ended_ || (!busy_ && taken_ >= target); });
}

}  // namespace kestravine
