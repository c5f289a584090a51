#pragma once

#include <sys/types.h>

namespace kestravine::system_calls {

// Linux system calls that a sandbox or a resource limit may deny, behind a seam so that tests
// can make them fail the way a seccomp filter (EPERM) or a full descriptor table (EMFILE) does.
// Each returns what the call returns, with errno set on failure.
//
// Threading: any thread. A test replaces an entry only while no other thread can call it.

// pidfd_open(2): a descriptor that keeps naming the process `pid` names now.
extern int (*pidfdOpen)(pid_t pid);
// pidfd_send_signal(2).
extern int (*pidfdSendSignal)(int pidfd, int signal);

}  // namespace kestravine::system_calls
