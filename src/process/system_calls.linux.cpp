#include "process/system_calls.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace kestravine::system_calls {

namespace {

// Through syscall(): glibc's own wrappers are not declared for C++ in every version.
int realPidfdOpen(pid_t pid) {
  return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
}

int realPidfdSendSignal(int pidfd, int signal) {
  return static_cast<int>(::syscall(SYS_pidfd_send_signal, pidfd, signal, nullptr, 0));
}

}  // namespace

int (*pidfdOpen)(pid_t) = realPidfdOpen;
int (*pidfdSendSignal)(int, int) = realPidfdSendSignal;

}  // namespace kestravine::system_calls
