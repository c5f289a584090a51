#pragma once

#include <sys/types.h>

#include <cerrno>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "system/unique_fd.h"

namespace kestravine::system_calls {

// The system calls the launcher makes beyond the standard library, in one place: what a port to
// another system replaces (docs/porting.md), and the seam through which tests make a call fail
// the way a seccomp filter (EPERM) or a full descriptor table (EMFILE) would.
//
// Threading: any thread. A test replaces an entry only while no other thread can call it.

// Runs `call` again for as long as a signal interrupts it (-1 with EINTR).
template <typename Call>
auto retryOnInterrupt(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

// A pipe whose ends are close-on-exec (and `flags`, such as O_NONBLOCK); none if the system has
// no descriptor left.
struct Pipe {
  UniqueFd read;
  UniqueFd write;
};
std::optional<Pipe> makePipe(int flags = 0);

// Everything `fd` gives until its end. What came before a read error counts as nothing: a /proc
// file whose process ends while it is read has told nothing reliable.
std::string readToEnd(int fd);

// The whole file at `path`, as readToEnd() gives it; empty if it cannot be opened.
std::string readFile(const char* path);

// The file at `path` if it is a regular file (after links) of at most `limit` bytes; none
// otherwise. Opened without blocking, so a FIFO in its place never stalls the caller.
std::optional<std::string> readSmallFile(const char* path, std::size_t limit);

// The system's message for the errno value `error` and its name, as in "Permission denied
// (EACCES)", with the parentheses of Chinese text around the name.
std::string describeError(int error);

// Writes all of `bytes` to `fd`, however many writes it takes; false if one fails.
bool writeAll(int fd, std::string_view bytes);

// Marks every descriptor from `first` on close-on-exec: what the launcher inherited from whoever
// started it then reaches none of the programs it runs, also those its toolkit starts for it
// (the browser, which may live for hours). Best effort.
void setCloseOnExecFrom(int first);

// A file in memory, close-on-exec, for bytes to be held back and written out later; named
// `name` where the system shows such files. None if the system has no descriptor left.
UniqueFd makeMemoryFile(const char* name);

// The next connection waiting on the listening socket `listener`, close-on-exec and
// non-blocking; none if there is none yet.
UniqueFd acceptConnection(int listener);

// Whether a TCP connection to 127.0.0.1:`port` is taken within `timeoutMs`. A connection that
// is neither taken nor refused by then counts as taken: something holds the port.
bool connectsToLoopback(int port, int timeoutMs);

// Starts `task` on a thread of its own, detached; throws std::system_error when the system
// refuses a thread (EAGAIN under a process limit), as std::thread does. Tests replace it to
// refuse.
extern void (*startThread)(std::function<void()> task);

// Waits until the child `pid` has exited, without reaping it (waitid with WNOWAIT, again after
// EINTR): the pid stays the child's until it is reaped.
void awaitExit(pid_t pid);

// kill(2). Tests replace it to see which process is signalled.
extern int (*sendSignal)(pid_t pid, int signal);

// pidfd_open(2): a descriptor that keeps naming the process `pid` names now.
extern int (*pidfdOpen)(pid_t pid);
// pidfd_send_signal(2).
extern int (*pidfdSendSignal)(int pidfd, int signal);

}  // namespace kestravine::system_calls
