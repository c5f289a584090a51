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

}  // namespace

bool detail::failing(const char* name) {
  ++counts[name];
  auto it = failures.find(name);
  if (it == failures.end() || it->second.times == 0) return false;
  --it->second.times;
  errno = it->second.error;
  return true;
}

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

int open(const char* path, int flags, mode_t mode) {
  return detail::failing("open") ? -1 : opened(::open(path, flags, mode), path);
}
int openat(int dirfd, const char* path, int flags, mode_t mode) {
  if (detail::failing("openat")) return -1;
  // Known by its whole path where the folder's is known, as the test names it.
  const auto folder = openedFrom.find(dirfd);
  const std::string whole = folder == openedFrom.end() ? path : folder->second + "/" + path;
  return opened(::openat(dirfd, path, flags, mode), whole);
}
int fstat(int fd, struct stat* info) {
  if (detail::failing("fstat")) return -1;
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
int isatty(int fd) {
  return detail::failing("isatty") ? 0 : ::isatty(fd);
}
uid_t getuid() {
  ++counts["getuid"];
  return ::getuid();
}

}  // namespace kestravine::mock
