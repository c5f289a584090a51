#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace kestravine::testing {

// Every process a test program starts inherits this variable, set to the program's pid, so the
// processes left behind can be found anywhere on the machine, whatever their parent now is.
inline constexpr const char* kMark = "KESTRAVINE_TEST_MARK";

std::string readFile(const std::string& path);
// Live (not zombie) processes carrying this program's mark, the program itself left out.
std::vector<pid_t> markedProcesses();
// Polls `done` until it holds, at most 10 s of real time, running the main queue meanwhile (exit
// reports may be waiting to be reaped); returns what it last returned. For what the kernel
// finishes asynchronously, such as a killed process vanishing.
bool eventually(const std::function<bool()>& done);
// Waits until no marked process is left; returns what is left, as "pid:command" words.
std::string waitForNoMarkedProcess();
// A uid that no account names and no process runs as, for a test that acts as another user.
uid_t unusedUid();
// True when no live process has this pid (gone, or a zombie awaiting its reaper).
bool isGone(pid_t pid);

}  // namespace kestravine::testing
