#include "app/single_instance.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QSocketNotifier>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <thread>

#include "system/system_calls.h"

namespace kestravine {

namespace {

// How long a later launcher waits for the first one's answer; the first answers from its event
// loop, which a long frame may hold up.
constexpr int kAnswerMilliseconds = 3000;
// Tries of lock-or-connect: the first may end between a later one's lock and its connect.
constexpr int kTries = 50;
constexpr std::size_t kMaxTokenBytes = 4096;

// The user's own place for the guard's files; empty if there is none to be had safely.
std::string runtimeDirectory() {
  std::string base;
  if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && runtime[0] == '/') {
    base = std::string(runtime) + "/kestravine-launcher";
  } else {
    base = "/tmp/kestravine-launcher-" + std::to_string(::getuid());
  }
  ::mkdir(base.c_str(), 0700);
  struct stat info {};
  // Ours alone: not a link, not made by another user, closed to others.
  if (::lstat(base.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != ::getuid() ||
      (info.st_mode & 077) != 0)
    return {};
  return base;
}

// The home's name in the guard's files: the same for every path to the same folder, also one
// that does not exist yet.
std::string homeKey(const std::string& home) {
  std::error_code error;
  std::filesystem::path path = std::filesystem::weakly_canonical(home, error);
  if (error) path = std::filesystem::absolute(home, error).lexically_normal();
  if (!path.has_filename() && path.has_relative_path()) path = path.parent_path();  // "dir/"
  const QByteArray hash = QCryptographicHash::hash(QByteArray::fromStdString(path.string()),
                                                   QCryptographicHash::Sha256);
  // 64 bits tell homes apart; a short name leaves room in a socket's 108-byte path for a long
  // runtime directory.
  return hash.toHex().left(16).toStdString();
}

std::optional<sockaddr_un> socketAddress(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return std::nullopt;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

UniqueFd listenAt(const std::string& path) {
  const auto address = socketAddress(path);
  if (!address) return {};
  UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd) return {};
  ::unlink(path.c_str());  // left by a launcher that ended: the lock says nobody uses it
  if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0 ||
      ::listen(fd.get(), 8) != 0)
    return {};
  return fd;
}

std::optional<SingleInstance::Answer> askFirst(const std::string& path) {
  const auto address = socketAddress(path);
  if (!address) return std::nullopt;
  const UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd ||
      ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0)
    return std::nullopt;
  const char* token = std::getenv("XDG_ACTIVATION_TOKEN");
  const std::string request = std::string(token ? token : "") + "\n";
  (void)!::send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL);
  std::string reply;
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(kAnswerMilliseconds);
  while (reply.find('\n') == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    pollfd readable{fd.get(), POLLIN, 0};
    const int ready = ::poll(&readable, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;  // again, with the time that is left
    if (ready <= 0) break;
    char buffer[64];
    const ssize_t n =
        system_calls::retryOnInterrupt([&] { return ::read(fd.get(), buffer, sizeof buffer); });
    if (n <= 0) break;
    reply.append(buffer, static_cast<std::size_t>(n));
  }
  if (reply.starts_with("finishing\n")) return SingleInstance::Answer::finishing;
  if (reply.starts_with("shown\n")) return SingleInstance::Answer::shown;
  return SingleInstance::Answer::unknown;
}

}  // namespace

SingleInstance::SingleInstance(const std::string& home) {
  const std::string dir = runtimeDirectory();
  if (dir.empty()) return;
  const std::string base = dir + "/" + homeKey(home);
  lock_.reset(::open((base + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!lock_) return;
  for (int attempt = 0; attempt < kTries; ++attempt) {
    if (::flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) {
      listener_ = listenAt(base + ".sock");
      return;
    }
    if (auto answer = askFirst(base + ".sock")) {
      answer_ = *answer;
      return;
    }
    // The holder is between taking the lock and listening, or has just ended.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  answer_ = Answer::unknown;
}

SingleInstance::~SingleInstance() = default;

void SingleInstance::serve(std::function<bool(const QString& token)> onLaunch) {
  if (answer_ != Answer::first || !listener_) return;
  ::fcntl(listener_.get(), F_SETFL, ::fcntl(listener_.get(), F_GETFL) | O_NONBLOCK);
  // Answers for as long as the application runs, also after the window has gone.
  auto* listening =
      new QSocketNotifier(listener_.get(), QSocketNotifier::Read, QCoreApplication::instance());
  QObject::connect(listening, &QSocketNotifier::activated, [this, listening, onLaunch] {
    auto connection = std::make_shared<UniqueFd>(system_calls::acceptConnection(listener_.get()));
    if (!*connection) return;
    auto* reading = new QSocketNotifier(connection->get(), QSocketNotifier::Read, listening);
    auto request = std::make_shared<std::string>();
    QObject::connect(
        reading, &QSocketNotifier::activated, [reading, connection, request, onLaunch] {
          const int fd = connection->get();
          char buffer[512];
          const ssize_t n =
              system_calls::retryOnInterrupt([&] { return ::read(fd, buffer, sizeof buffer); });
          if (n < 0 && errno == EAGAIN) return;
          if (n > 0) request->append(buffer, static_cast<std::size_t>(n));
          const std::size_t end = request->find('\n');
          if (end == std::string::npos && n > 0 && request->size() <= kMaxTokenBytes) return;
          if (end != std::string::npos) {
            const bool finishing = onLaunch(QString::fromStdString(request->substr(0, end)));
            const std::string_view answer = finishing ? "finishing\n" : "shown\n";
            (void)!::send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
          }
          reading->setEnabled(false);
          reading->deleteLater();
          connection->reset();
        });
  });
}

int SingleInstance::report() const {
  switch (answer_) {
    case Answer::first:
    case Answer::shown:
      if (::isatty(STDOUT_FILENO))
        std::fputs(
            "kestravine-launcher：这个产品目录已经有一个启动器在运行，已把它的窗口带到前面。\n",
            stdout);
      return 0;
    case Answer::finishing:
      std::fputs(
          "kestravine-launcher：上一个启动器关了窗口，还在等它的命令结束；结束以后再打开。\n",
          stderr);
      return 0;
    case Answer::unknown:
      break;
  }
  std::fputs("kestravine-launcher：这个产品目录已经有一个启动器在运行，但它没有回应。\n", stderr);
  return 1;
}

}  // namespace kestravine
