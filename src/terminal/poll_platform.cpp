#include "terminal/poll_platform.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "system/system_calls.h"

namespace kestravine {

namespace {

// As the window's platform: long enough for thousands of small tasks, short enough that keys and
// the terminal's size are read between two drains while a command floods its output.
constexpr auto kDrainBudget = std::chrono::milliseconds(8);
constexpr int kOpenerPollMs = 50;

bool hasDesktop() {
  for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && *value != '\0') return true;
  }
  return false;
}

}  // namespace

PollPlatform::PollPlatform(std::function<void(const std::string&)> showAddress)
    : showAddress_(std::move(showAddress)), queue_([this] {
        const char byte = 1;
        (void)!::write(wakeWrite_.get(), &byte, 1);  // a full pipe wakes the loop all the same
      }) {
  auto pipe = system_calls::makePipe(O_NONBLOCK);
  if (!pipe) {
    error_ = errno;
    return;
  }
  wakeRead_ = std::move(pipe->read);
  wakeWrite_ = std::move(pipe->write);
}

void PollPlatform::post(Task task) {
  queue_.push(std::move(task));
}

void PollPlatform::postAfter(Delay delay, Task task) {
  timers_.emplace(Clock::now() + delay, std::pair(std::move(task), false));
}

void PollPlatform::runInBackgroundAfter(Delay delay, Task task) {
  timers_.emplace(Clock::now() + delay, std::pair(std::move(task), true));
}

void PollPlatform::openUrl(const std::string& url, std::function<void(bool)> done) {
  bool found = false;
  std::optional<Opener> opener = hasDesktop() ? Opener::start(url, found) : std::nullopt;
  if (opener) {
    openers_.emplace_back(std::move(*opener), std::move(done));
    return;
  }
  // No desktop to ask (a login over SSH): the address itself is what the user gets.
  showAddress_(url);
  post([done = std::move(done)] { done(true); });
}

void PollPlatform::quit() {
  quit_ = true;
}

void PollPlatform::watch(int fd, std::function<void()> onReadable) {
  watched_[fd] = std::move(onReadable);
}

void PollPlatform::unwatch(int fd) {
  watched_.erase(fd);
}

void PollPlatform::runDueTimers() {
  const auto now = Clock::now();
  while (!timers_.empty() && timers_.begin()->first <= now && !quit_) {
    auto [task, background] = std::move(timers_.begin()->second);
    timers_.erase(timers_.begin());
    if (!background) {
      task();
      continue;
    }
    try {
      system_calls::startThread(task);
    } catch (const std::system_error&) {
      task();  // no thread to be had: a SIGKILL follow-up is short enough to run here
    }
  }
}

void PollPlatform::pollOpeners() {
  for (auto& [opener, done] : openers_) {
    if (!done) continue;
    if (const std::optional<bool> opened = opener.result()) {
      auto told = std::exchange(done, nullptr);
      post([told = std::move(told), opened = *opened] { told(opened); });
    }
  }
  std::erase_if(openers_, [](auto& entry) { return !entry.second && entry.first.reap(); });
}

void PollPlatform::run() {
  while (!quit_) {
    const bool more = queue_.drain(kDrainBudget);
    if (quit_) break;
    runDueTimers();
    pollOpeners();
    if (quit_) break;
    int timeout = -1;
    if (more) timeout = 0;
    if (!timers_.empty()) {
      const auto wait =
          std::chrono::ceil<std::chrono::milliseconds>(timers_.begin()->first - Clock::now());
      timeout = static_cast<int>(std::clamp<long long>(wait.count(), 0, 60000));
      if (more) timeout = 0;
    }
    if (!openers_.empty()) timeout = timeout < 0 ? kOpenerPollMs : std::min(timeout, kOpenerPollMs);
    std::vector<pollfd> fds{{wakeRead_.get(), POLLIN, 0}};
    for (const auto& [fd, _] : watched_) fds.push_back({fd, POLLIN, 0});
    if (::poll(fds.data(), fds.size(), timeout) < 0) continue;  // EINTR: a signal, look again
    if (fds[0].revents != 0) {
      char bytes[256];
      while (::read(wakeRead_.get(), bytes, sizeof bytes) > 0) {
      }
    }
    for (std::size_t i = 1; i < fds.size(); ++i) {
      if (fds[i].revents == 0) continue;
      // A callback may unwatch this or another descriptor: look it up afresh.
      auto it = watched_.find(fds[i].fd);
      if (it != watched_.end()) {
        auto onReadable = it->second;
        onReadable();
      }
    }
  }
}

}  // namespace kestravine
