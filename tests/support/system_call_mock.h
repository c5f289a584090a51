#pragma once

// Stand-ins for the system calls of code compiled with KESTRAVINE_MOCK_SYSTEM_CALLS (see
// src/system/system_call.h): each does what the system's does, unless a test has asked it to
// fail. Threading: a test's main thread only.
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

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

namespace detail {
// Counts the call; true, with errno set, when the test asked it to fail.
bool failing(const char* name);
}  // namespace detail

// Each does what the system's call of its name does, unless asked to fail.
#define KESTRAVINE_MOCK(name)                             \
  template <typename... Args>                             \
  auto name(Args... args)->decltype(::name(args...)) {    \
    return detail::failing(#name) ? -1 : ::name(args...); \
  }
KESTRAVINE_MOCK(mkdirat)
KESTRAVINE_MOCK(fstatat)
KESTRAVINE_MOCK(flock)
KESTRAVINE_MOCK(unlinkat)
KESTRAVINE_MOCK(socket)
KESTRAVINE_MOCK(bind)
KESTRAVINE_MOCK(listen)
KESTRAVINE_MOCK(connect)
KESTRAVINE_MOCK(send)
KESTRAVINE_MOCK(poll)
KESTRAVINE_MOCK(read)
KESTRAVINE_MOCK(fcntl)
#undef KESTRAVINE_MOCK

// These also keep the path a descriptor was opened by, for alterFstat().
int open(const char* path, int flags, mode_t mode = 0);
int openat(int dirfd, const char* path, int flags, mode_t mode = 0);
int fstat(int fd, struct stat* info);
int isatty(int fd);  // 0 when failing, as the system's
uid_t getuid();      // counted only

}  // namespace kestravine::mock
