#include "startup/single_instance.h"

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
#include <memory>
#include <optional>
#include <string_view>
#include <thread>

#include "system/system_call.h"
#include "system/system_calls.h"

namespace kestravine {

namespace {

// How long a later launcher waits for the first one's answer; the first answers from its event
// loop, which a long frame may hold up.
constexpr int kAnswerMilliseconds = 3000;
// Tries of lock-or-connect: the first may end between a later one's lock and its connect.
constexpr int kTries = 50;
constexpr std::size_t kMaxTokenBytes = 4096;

constexpr const char* kGuardFolder = "kestravine-launcher";
// The first launcher's answers (see the header's table).
constexpr std::string_view kShown = "shown\n";
constexpr std::string_view kFinishing = "finishing\n";
constexpr std::string_view kElsewhere = "elsewhere ";

// The folder `name` in `parent`, made if missing (with `mode`), opened without following a link
// and checked through its descriptor: the user's own, and writable by nobody else (with
// `privateOnly`, open to nobody else at all). Nothing is checked by path and then used by path,
// so nobody can swap it in between.
UniqueFd ownFolder(int parent, const char* name, mode_t mode, bool privateOnly) {
  SYSTEM_CALL(mkdirat)(parent, name, mode);
  UniqueFd fd(SYSTEM_CALL(openat)(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat info {};
  if (!fd || SYSTEM_CALL(fstat)(fd.get(), &info) != 0 || info.st_uid != SYSTEM_CALL(getuid)() ||
      (info.st_mode & (privateOnly ? 077 : 022)) != 0)
    return {};
  return fd;
}

// A base folder by its absolute path, the user's own and writable by nobody else (as the rules
// for XDG_RUNTIME_DIR require of it).
UniqueFd ownBase(const std::string& path) {
  if (path.empty() || path[0] != '/') return {};
  UniqueFd fd(SYSTEM_CALL(open)(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat info {};
  if (!fd || SYSTEM_CALL(fstat)(fd.get(), &info) != 0 || info.st_uid != SYSTEM_CALL(getuid)() ||
      (info.st_mode & 022) != 0)
    return {};
  return fd;
}

// The user's own folder for the guard's files: in the runtime directory when that is the user's
// alone, else in /run/user/<uid>, else in the cache folder of the user's home, where no other
// user can make or replace anything. None if there is no such place.
UniqueFd guardFolder() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  for (const std::string& base : {std::string(runtime ? runtime : ""),
                                  "/run/user/" + std::to_string(SYSTEM_CALL(getuid)())}) {
    if (const UniqueFd parent = ownBase(base))
      if (UniqueFd folder = ownFolder(parent.get(), kGuardFolder, 0700, true)) return folder;
  }
  const char* home = std::getenv("HOME");
  if (const UniqueFd parent = ownBase(home ? home : ""))
    if (const UniqueFd cache = ownFolder(parent.get(), ".cache", 0700, false))
      return ownFolder(cache.get(), kGuardFolder, 0700, true);
  return {};
}

// A path that names `name` in the folder `folder` holds open, for the calls that take a path
// (bind, connect): through the descriptor, never again through the folder's own path.
std::string inFolder(int folder, const std::string& name) {
  return "/proc/self/fd/" + std::to_string(folder) + "/" + name;
}

// The home's name in the guard's files: `home` is canonical, so every path to one folder gives
// the same name.
std::string homeKey(const std::string& home) {
  const QByteArray hash =
      QCryptographicHash::hash(QByteArray::fromStdString(home), QCryptographicHash::Sha256);
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

UniqueFd listenAt(int folder, const std::string& name) {
  const auto address = socketAddress(inFolder(folder, name));
  if (!address) return {};
  UniqueFd fd(SYSTEM_CALL(socket)(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd) return {};
  SYSTEM_CALL(unlinkat)
  (folder, name.c_str(), 0);  // left by a launcher that ended: the lock says so
  if (SYSTEM_CALL(bind)(fd.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) !=
          0 ||
      SYSTEM_CALL(listen)(fd.get(), 8) != 0)
    return {};
  return fd;
}

std::optional<SingleInstance::Answer> askFirst(const std::string& path, std::string& elsewhere) {
  const auto address = socketAddress(path);
  if (!address) return std::nullopt;
  const UniqueFd fd(SYSTEM_CALL(socket)(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd || SYSTEM_CALL(connect)(fd.get(), reinterpret_cast<const sockaddr*>(&*address),
                                  sizeof *address) != 0)
    return std::nullopt;
  const char* token = std::getenv("XDG_ACTIVATION_TOKEN");
  const std::string request =
      std::string(token ? token : "") + "\t" + SingleInstance::thisDesktop() + "\n";
  (void)!SYSTEM_CALL(send)(fd.get(), request.data(), request.size(), MSG_NOSIGNAL);
  std::string reply;
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(kAnswerMilliseconds);
  while (reply.find('\n') == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    pollfd readable{fd.get(), POLLIN, 0};
    const int ready = SYSTEM_CALL(poll)(&readable, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;  // again, with the time that is left
    if (ready <= 0) break;
    char buffer[64];
    const ssize_t n = system_calls::retryOnInterrupt(
        [&] { return SYSTEM_CALL(read)(fd.get(), buffer, sizeof buffer); });
    if (n <= 0) break;
    reply.append(buffer, static_cast<std::size_t>(n));
  }
  if (reply.starts_with(kFinishing)) return SingleInstance::Answer::finishing;
  if (reply.starts_with(kShown)) return SingleInstance::Answer::shown;
  if (const std::size_t end = reply.find('\n');
      reply.starts_with(kElsewhere) && end != std::string::npos) {
    elsewhere = reply.substr(kElsewhere.size(), end - kElsewhere.size());
    return SingleInstance::Answer::elsewhere;
  }
  return SingleInstance::Answer::unknown;
}

}  // namespace

SingleInstance::SingleInstance(const std::string& home) {
  folder_ = guardFolder();
  if (!folder_) {
    std::fputs("kestravine-launcher：找不到只属于你的文件夹来放单实例锁，这次不防重复打开。\n",
               stderr);
    return;
  }
  const std::string base = homeKey(home);
  lockName_ = base + ".lock";
  socketName_ = base + ".sock";
  for (int attempt = 0; attempt < kTries; ++attempt) {
    lock_.reset(SYSTEM_CALL(openat)(folder_.get(), lockName_.c_str(),
                                    O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!lock_) break;
    if (SYSTEM_CALL(flock)(lock_.get(), LOCK_EX | LOCK_NB) == 0) {
      // The first launcher removes the lock file as it ends; one that got the lock of a file
      // removed meanwhile holds nothing and tries again with the file there now.
      struct stat held {
      }, there{};
      if (SYSTEM_CALL(fstat)(lock_.get(), &held) != 0 || held.st_nlink == 0 ||
          SYSTEM_CALL(fstatat)(folder_.get(), lockName_.c_str(), &there, AT_SYMLINK_NOFOLLOW) !=
              0 ||
          held.st_ino != there.st_ino)
        continue;
      listener_ = listenAt(folder_.get(), socketName_);
      return;
    }
    if (auto answer = askFirst(inFolder(folder_.get(), socketName_), elsewhere_)) {
      answer_ = *answer;
      return;
    }
    // The holder is between taking the lock and listening, or has just ended.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  answer_ = Answer::unknown;
}

SingleInstance::~SingleInstance() {
  leave();
}

void SingleInstance::leave() {
  // The first launcher leaves nothing behind: socket first (nobody can be answered any more),
  // then the lock file, while still holding the lock.
  if (answer_ != Answer::first || !lock_) return;
  if (listener_) SYSTEM_CALL(unlinkat)(folder_.get(), socketName_.c_str(), 0);
  SYSTEM_CALL(unlinkat)(folder_.get(), lockName_.c_str(), 0);
  listener_.reset();
  lock_.reset();
}

void SingleInstance::serve(std::function<bool(const QString& token)> onLaunch) {
  if (answer_ != Answer::first || !listener_) return;
  SYSTEM_CALL(fcntl)
  (listener_.get(), F_SETFL, SYSTEM_CALL(fcntl)(listener_.get(), F_GETFL) | O_NONBLOCK);
  // Answers for as long as the application runs, also after the window has gone.
  auto* listening =
      new QSocketNotifier(listener_.get(), QSocketNotifier::Read, QCoreApplication::instance());
  QObject::connect(listening, &QSocketNotifier::activated, [this, listening, onLaunch] {
    auto connection = std::make_shared<UniqueFd>(system_calls::acceptConnection(listener_.get()));
    if (!*connection) return;
    auto* reading = new QSocketNotifier(connection->get(), QSocketNotifier::Read, listening);
    auto request = std::make_shared<std::string>();
    QObject::connect(reading, &QSocketNotifier::activated,
                     [reading, connection, request, onLaunch] {
                       const int fd = connection->get();
                       char buffer[512];
                       const ssize_t n = system_calls::retryOnInterrupt(
                           [&] { return SYSTEM_CALL(read)(fd, buffer, sizeof buffer); });
                       if (n < 0 && errno == EAGAIN) return;
                       if (n > 0) request->append(buffer, static_cast<std::size_t>(n));
                       const std::size_t end = request->find('\n');
                       if (end == std::string::npos && n > 0 && request->size() <= kMaxTokenBytes)
                         return;
                       if (end != std::string::npos) {
                         const std::string answer = replyTo(request->substr(0, end), onLaunch);
                         (void)!SYSTEM_CALL(send)(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
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
      if (SYSTEM_CALL(isatty)(STDOUT_FILENO))
        std::fputs(
            "kestravine-launcher：这个产品目录已经有一个启动器在运行，已把它的窗口带到前面。\n",
            stdout);
      return 0;
    case Answer::finishing:
      std::fputs(
          "kestravine-launcher：上一个启动器关了窗口，还在等它的命令结束；结束以后再打开。\n",
          stderr);
      return 0;
    case Answer::elsewhere:
      std::fputs(("kestravine-launcher：" + elsewhereText() + "\n").c_str(), stderr);
      return 0;
    case Answer::unknown:
      break;
  }
  std::fputs("kestravine-launcher：这个产品目录已经有一个启动器在运行，但它没有回应。\n", stderr);
  return 1;
}

std::string SingleInstance::replyTo(const std::string& line,
                                    const std::function<bool(const QString&)>& onLaunch) {
  const std::size_t tab = line.find('\t');
  const std::string desktop = tab == std::string::npos ? "" : line.substr(tab + 1);
  // On another desktop this window cannot be brought forward: say where it is.
  if (tab != std::string::npos && desktop != thisDesktop())
    return std::string(kElsewhere) + thisDesktop() + "\n";
  const bool finishing = onLaunch(QString::fromStdString(line.substr(0, tab)));
  return std::string(finishing ? kFinishing : kShown);
}

int SingleInstance::listenerFd() const {
  return answer_ == Answer::first && listener_ ? listener_.get() : -1;
}

void SingleInstance::answerOne(const std::function<bool(const QString&)>& onLaunch) {
  const UniqueFd connection = system_calls::acceptConnection(listener_.get());
  if (!connection) return;
  // Without an event loop to read it in pieces: the request comes at once, or not at all.
  std::string request;
  while (request.find('\n') == std::string::npos && request.size() <= kMaxTokenBytes) {
    pollfd readable{connection.get(), POLLIN, 0};
    if (SYSTEM_CALL(poll)(&readable, 1, kAnswerMilliseconds / 6) <= 0) return;
    char buffer[512];
    const ssize_t n = system_calls::retryOnInterrupt(
        [&] { return SYSTEM_CALL(read)(connection.get(), buffer, sizeof buffer); });
    if (n <= 0) return;
    request.append(buffer, static_cast<std::size_t>(n));
  }
  const std::size_t end = request.find('\n');
  if (end == std::string::npos) return;
  const std::string answer = replyTo(request.substr(0, end), onLaunch);
  (void)!SYSTEM_CALL(send)(connection.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
}

std::string& SingleInstance::desktopOverride() {
  static std::string desktop;
  return desktop;
}

void SingleInstance::setDesktop(std::string desktop) {
  desktopOverride() = std::move(desktop);
}

std::string SingleInstance::thisDesktop() {
  if (!desktopOverride().empty()) return desktopOverride();
  // The display a window of this launcher would go to, as Qt chooses it: Wayland first.
  for (const char* variable : {"WAYLAND_DISPLAY", "DISPLAY"}) {
    std::string value = std::getenv(variable) ? std::getenv(variable) : "";
    if (value.empty()) continue;
    // ":57.0" and ":57" are one X display; the wire's separators never come from a value.
    if (value.size() > 2 && value.ends_with(".0")) value.resize(value.size() - 2);
    for (char& c : value)
      if (c == '\n' || c == '\t') c = '?';
    return std::string(variable) + "=" + value;
  }
  const char* platform = std::getenv("QT_QPA_PLATFORM");
  return std::string("QT_QPA_PLATFORM=") + (platform ? platform : "");
}

std::string SingleInstance::elsewhereText() const {
  return "这个产品目录的启动器已经在另一个桌面上打开了（" + elsewhere_ +
         "）。请到那个桌面上继续；一个产品目录同时只能开一个启动器。";
}

}  // namespace kestravine
