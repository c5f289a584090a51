#include "system/system_calls.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <thread>

#include "text/decimal.h"

namespace kestravine::system_calls {

namespace {

// Through syscall(): glibc's own wrappers are not declared for C++ in every version.
int realPidfdOpen(pid_t pid) {
  return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
}

int realPidfdSendSignal(int pidfd, int signal) {
  return static_cast<int>(::syscall(SYS_pidfd_send_signal, pidfd, signal, nullptr, 0));
}

void realStartThread(std::function<void()> task) {
  std::thread(std::move(task)).detach();
}

}  // namespace

void (*startThread)(std::function<void()>) = realStartThread;
int (*sendSignal)(pid_t, int) = ::kill;
int (*pidfdOpen)(pid_t) = realPidfdOpen;
int (*pidfdSendSignal)(int, int) = realPidfdSendSignal;

std::optional<Pipe> makePipe(int flags) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC | flags) != 0) return std::nullopt;
  return Pipe{UniqueFd(fds[0]), UniqueFd(fds[1])};
}

std::string readToEnd(int fd) {
  std::string text;
  char buffer[16384];
  for (;;) {
    const ssize_t n = retryOnInterrupt([&] { return ::read(fd, buffer, sizeof buffer); });
    if (n == 0) return text;
    if (n < 0) return {};
    text.append(buffer, static_cast<std::size_t>(n));
  }
}

std::string readFile(const char* path) {
  const UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
  return fd ? readToEnd(fd.get()) : std::string();
}

void awaitExit(pid_t pid) {
  siginfo_t info{};
  retryOnInterrupt(
      [&] { return ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT); });
}

std::optional<std::string> readSmallFile(const char* path, std::size_t limit) {
  const UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat info {};
  if (!fd || ::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  // At most one byte more than allowed, however large the file is or grows while read.
  std::string text(limit + 1, '\0');
  std::size_t filled = 0;
  while (filled < text.size()) {
    const ssize_t n = retryOnInterrupt(
        [&] { return ::read(fd.get(), text.data() + filled, text.size() - filled); });
    if (n < 0) return std::nullopt;
    if (n == 0) break;
    filled += static_cast<std::size_t>(n);
  }
  if (filled > limit) return std::nullopt;
  text.resize(filled);
  return text;
}

std::string describeError(int error) {
  const char* name = ::strerrorname_np(error);
  return std::string(::strerror(error)) + "（" + (name ? name : std::to_string(error)) + "）";
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = retryOnInterrupt([&] { return ::write(fd, bytes.data(), bytes.size()); });
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

void setCloseOnExecFrom(int first) {
  if (::close_range(static_cast<unsigned>(first), ~0U, CLOSE_RANGE_CLOEXEC) == 0) return;
  // Kernels before 5.11: one by one, as /proc lists them.
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    const auto fd = parseDecimal<int>(entry.path().filename().string());
    if (fd && *fd >= first) ::fcntl(*fd, F_SETFD, FD_CLOEXEC);
  }
}

bool connectsToLoopback(int port, int timeoutMs) {
  const UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd) return true;  // cannot tell: assume the port is held
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    return true;
  if (errno != EINPROGRESS) return false;
  pollfd waiting{fd.get(), POLLOUT, 0};
  if (retryOnInterrupt([&] { return ::poll(&waiting, 1, timeoutMs); }) != 1) return true;
  int error = 0;
  socklen_t size = sizeof error;
  ::getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &error, &size);
  return error != ECONNREFUSED;
}

UniqueFd makeMemoryFile(const char* name) {
  return UniqueFd(::memfd_create(name, MFD_CLOEXEC));
}

UniqueFd acceptConnection(int listener) {
  return UniqueFd(retryOnInterrupt(
      [&] { return ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK); }));
}

}  // namespace kestravine::system_calls
