#include "event_loop/wake_pipe.h"

#include <poll.h>

#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <cerrno>

#include "system/system_calls.h"

namespace kestravine {

WakePipe::WakePipe(std::function<void(std::string_view bytes)> onWake, QObject* parent)
    : QObject(parent) {
  auto pipe = system_calls::makePipe(O_NONBLOCK);
  if (!pipe) {
    error_ = errno;
    return;
  }
  read_ = std::move(pipe->read);
  write_ = std::move(pipe->write);
  notifier_ = new QSocketNotifier(read_.get(), QSocketNotifier::Read, this);
  connect(notifier_, &QSocketNotifier::activated, this, [this, onWake = std::move(onWake)] {
    char bytes[256];
    std::string came;
    for (ssize_t n; (n = ::read(read_.get(), bytes, sizeof bytes)) > 0;)
      came.append(bytes, static_cast<std::size_t>(n));
    onWake(came);
  });
}

WakePipe::~WakePipe() {
  delete notifier_;  // before the descriptor it watches is closed
}

void WakePipe::waitWithoutEventLoop(int timeoutMs) {
  pollfd readable{read_.get(), POLLIN, 0};
  if (system_calls::retryOnInterrupt([&] { return ::poll(&readable, 1, timeoutMs); }) <= 0) return;
  char bytes[256];
  while (::read(read_.get(), bytes, sizeof bytes) > 0) {
  }
}

void WakePipe::wake(unsigned char byte) const {
  (void)!::write(write_.get(), &byte, 1);
}

}  // namespace kestravine
