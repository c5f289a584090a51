#include "support/system_call_mock.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <vector>

namespace kestravine::mock {

namespace {

struct Failure {
  int error = 0;
  int times = 0;
};
struct Alteration {
  std::string ending;
  std::function<void(struct stat&)> change;
  int times = -1;
};
std::map<std::string, Failure> failures;
std::map<std::string, int> counts;
std::vector<Alteration> alterations;
std::map<int, std::string> openedFrom;  // descriptor to the path it was opened by

int opened(int fd, const std::string& path) {
  if (fd >= 0) openedFrom[fd] = path;
  return fd;
}

// Counts the call; true (with errno set) when the test asked it to fail.
bool failing(const std::string& name) {
  ++counts[name];
  auto it = failures.find(name);
  if (it == failures.end() || it->second.times == 0) return false;
  --it->second.times;
  errno = it->second.error;
  return true;
}

}  // namespace

void fail(const std::string& name, int error, int times) {
  failures[name] = {error, times};
}

void alterFstat(const std::string& ending, std::function<void(struct stat&)> change, int times) {
  alterations.push_back({ending, std::move(change), times});
}

void foreign(const std::string& ending) {
  alterFstat(ending, [](struct stat& info) { info.st_uid = ::getuid() + 1; });
}

int calls(const std::string& name) {
  return counts[name];
}

void reset() {
  failures.clear();
  counts.clear();
  alterations.clear();
  openedFrom.clear();
}

int mkdirat(int dirfd, const char* path, mode_t mode) {
  return failing("mkdirat") ? -1 : ::mkdirat(dirfd, path, mode);
}
int open(const char* path, int flags, mode_t mode) {
  return failing("open") ? -1 : opened(::open(path, flags, mode), path);
}
int openat(int dirfd, const char* path, int flags, mode_t mode) {
  if (failing("openat")) return -1;
  // Known by its whole path where the folder's is known, as the test names it.
  const auto folder = openedFrom.find(dirfd);
  const std::string whole = folder == openedFrom.end() ? path : folder->second + "/" + path;
  return opened(::openat(dirfd, path, flags, mode), whole);
}
int fstat(int fd, struct stat* info) {
  if (failing("fstat")) return -1;
  const int result = ::fstat(fd, info);
  const auto path = openedFrom.find(fd);
  if (result != 0 || path == openedFrom.end()) return result;
  for (auto& alteration : alterations) {
    if (alteration.times == 0 || !path->second.ends_with(alteration.ending)) continue;
    if (alteration.times > 0) --alteration.times;
    alteration.change(*info);
  }
  return result;
}
int fstatat(int dirfd, const char* path, struct stat* info, int flags) {
  return failing("fstatat") ? -1 : ::fstatat(dirfd, path, info, flags);
}
int flock(int fd, int operation) {
  return failing("flock") ? -1 : ::flock(fd, operation);
}
int unlinkat(int dirfd, const char* path, int flags) {
  return failing("unlinkat") ? -1 : ::unlinkat(dirfd, path, flags);
}
int socket(int domain, int type, int protocol) {
  return failing("socket") ? -1 : ::socket(domain, type, protocol);
}
int bind(int fd, const sockaddr* address, socklen_t length) {
  return failing("bind") ? -1 : ::bind(fd, address, length);
}
int listen(int fd, int backlog) {
  return failing("listen") ? -1 : ::listen(fd, backlog);
}
int connect(int fd, const sockaddr* address, socklen_t length) {
  return failing("connect") ? -1 : ::connect(fd, address, length);
}
ssize_t send(int fd, const void* bytes, std::size_t length, int flags) {
  return failing("send") ? -1 : ::send(fd, bytes, length, flags);
}
int poll(pollfd* fds, nfds_t count, int timeoutMs) {
  return failing("poll") ? -1 : ::poll(fds, count, timeoutMs);
}
ssize_t read(int fd, void* bytes, std::size_t length) {
  return failing("read") ? -1 : ::read(fd, bytes, length);
}
int fcntl(int fd, int command, int argument) {
  return failing("fcntl") ? -1 : ::fcntl(fd, command, argument);
}
int isatty(int fd) {
  return failing("isatty") ? 0 : ::isatty(fd);
}
uid_t getuid() {
  ++counts["getuid"];
  return ::getuid();
}

}  // namespace kestravine::mock
