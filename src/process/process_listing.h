#pragma once

#include <sys/types.h>

#include <string_view>
#include <unordered_map>
#include <vector>

namespace kestravine {

// Reading the system's process list, as "/bin/ps -A -o pid=,ppid=" prints it. Stateless
// functions; any thread.
namespace process_listing {

// Process id to parent id, one entry per line holding two decimal 32-bit numbers as its first
// two space-separated fields; other lines are skipped, and a later line for the same id wins.
std::unordered_map<pid_t, pid_t> parse(std::string_view listing);

// Every process whose chain of parents reaches `root` within 200 steps, `root` excluded, each
// once, in no particular order. A circle of parents never makes the walk loop.
std::vector<pid_t> descendants(const std::unordered_map<pid_t, pid_t>& parents, pid_t root);

// Runs "/bin/ps" and returns what it printed; empty if it cannot be started.
std::string read();

}  // namespace process_listing
}  // namespace kestravine
