#include "process/line_delivery.h"

#include <utility>

#include "platform/platform.h"

namespace kestravine {

std::shared_ptr<LineDelivery> LineDelivery::create(std::function<void(std::string)> onLine) {
  return std::shared_ptr<LineDelivery>(new LineDelivery(std::move(onLine)));
}

void LineDelivery::post(LineBatch& batch) {
  if (batch.ends.empty()) return;
  const std::size_t bytes = batch.text.size() + batch.ends.size() * kLineOverhead;
  bool schedule = false;
  {
    std::unique_lock lock(mutex_);
    ++held_;
    room_.wait(lock, [&] { return pending_ <= kMaxPendingBytes; });
    --held_;
    pending_ += bytes;
    batches_.push_back({std::move(batch), bytes});
    schedule = !std::exchange(scheduled_, true);
  }
  batch = {};
  if (schedule) platform().post([self = shared_from_this()] { self->deliver(); });
}

std::size_t LineDelivery::held() const {
  std::lock_guard lock(mutex_);
  return held_;
}

void LineDelivery::deliver() {
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
      platform().post([self = shared_from_this()] { self->deliver(); });
      return;
    }
    const std::size_t begin = next_ == 0 ? 0 : current_.batch.ends[next_ - 1];
    const std::size_t end = current_.batch.ends[next_++];
    onLine_(current_.batch.text.substr(begin, end - begin));
  }
}

}  // namespace kestravine
