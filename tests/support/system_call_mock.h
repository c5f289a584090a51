#pragma once

// Stand-ins for the system calls of code compiled with KESTRAVINE_MOCK_SYSTEM_CALLS (see
// src/system/system_call.h): each does what the system's does, unless a test has asked it to
// fail. Threading: a test's main thread only.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <functional>
#include <string>

namespace kestravine::mock {

// The next `times` calls of `name` (e.g. "bind") fail with `error`, without reaching the system.
void fail(const std::string& name, int error, int times = 1);
// What fstat reports of a descriptor opened (open, openat) by a path ending in `ending` goes
// through `change`, the next `times` times (-1: always).
void alterFstat(const std::string& ending, std::function<void(struct stat&)> change,
                int times = -1);
// As alterFstat(), a folder made by another user.
void foreign(const std::string& ending);
// How often `name` was called since the last reset(), and forgets every failure asked for.
int calls(const std::string& name);
void reset();

int mkdirat(int dirfd, const char* path, mode_t mode);
int open(const char* path, int flags, mode_t mode = 0);
int openat(int dirfd, const char* path, int flags, mode_t mode = 0);
int fstat(int fd, struct stat* info);
int fstatat(int dirfd, const char* path, struct stat* info, int flags);
int flock(int fd, int operation);
int unlinkat(int dirfd, const char* path, int flags);
int socket(int domain, int type, int protocol);
int bind(int fd, const sockaddr* address, socklen_t length);
int listen(int fd, int backlog);
int connect(int fd, const sockaddr* address, socklen_t length);
ssize_t send(int fd, const void* bytes, std::size_t length, int flags);
int poll(pollfd* fds, nfds_t count, int timeoutMs);
ssize_t read(int fd, void* bytes, std::size_t length);
int fcntl(int fd, int command, int argument = 0);
int isatty(int fd);
uid_t getuid();

}  // namespace kestravine::mock
