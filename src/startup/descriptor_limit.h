#pragma once

#include <optional>
#include <string>

namespace kestravine {

// The descriptors the launcher needs at the least: the toolkit, its display connection and fonts,
// the one-launcher guard, and a running command with its pipe, its exit watcher and the probe.
// Below that the toolkit fails in ways that name the wrong cause (an unreachable desktop) or
// end the process with a signal, so the launcher checks before the toolkit starts.
//
// Threading: stateless functions, called on the main thread before any other thread exists.
namespace descriptor_limit {

inline constexpr long kNeeded = 32;

// Raises the soft limit on open files to kNeeded where it is lower and the hard limit allows.
// Returns the limit in force when it is still lower than kNeeded; nothing when it is enough.
std::optional<long> ensure();

// The one line for a launcher that cannot open enough files: the cause (`error`: EMFILE, the
// process's limit, or ENFILE, the system's), the limit found, and what to do.
std::string shortage(long limit, int error);

// The soft limit on open files now.
long current();

}  // namespace descriptor_limit
}  // namespace kestravine
