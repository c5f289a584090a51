#include "process/process_listing.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "env/decimal.h"
#include "process/spawn.h"

namespace kestravine::process_listing {

namespace {

constexpr int kMaxParentSteps = 200;

// The first two fields of a line, split at spaces with empty fields dropped.
bool firstTwoFields(std::string_view line, std::string_view& first, std::string_view& second) {
  std::string_view* slots[] = {&first, &second};
  int found = 0;
  std::size_t pos = 0;
  while (found < 2) {
    pos = line.find_first_not_of(' ', pos);
    if (pos == std::string_view::npos) return false;
    std::size_t end = line.find(' ', pos);
    if (end == std::string_view::npos) end = line.size();
    *slots[found++] = line.substr(pos, end - pos);
    pos = end;
  }
  return true;
}

}  // namespace

std::unordered_map<pid_t, pid_t> parse(std::string_view listing) {
  std::unordered_map<pid_t, pid_t> parents;
  while (!listing.empty()) {
    std::size_t end = listing.find('\n');
    std::string_view line = listing.substr(0, end);
    listing.remove_prefix(end == std::string_view::npos ? listing.size() : end + 1);
    std::string_view pidText;
    std::string_view ppidText;
    if (!firstTwoFields(line, pidText, ppidText)) continue;
    auto pid = parseDecimal<std::int32_t>(pidText);
    auto ppid = parseDecimal<std::int32_t>(ppidText);
    if (pid && ppid) parents[*pid] = *ppid;
  }
  return parents;
}

std::vector<pid_t> descendants(const std::unordered_map<pid_t, pid_t>& parents, pid_t root) {
  // Walking each process's parents up to the root, at most 200 steps, finds exactly the
  // processes at depth 1 to 200 below the root. A breadth-first walk down from the root finds
  // the same set in linear time; the root itself is never expanded again, so circles through
  // it end there, and circles elsewhere are never entered from the root.
  std::unordered_multimap<pid_t, pid_t> children;
  children.reserve(parents.size());
  for (const auto& [pid, ppid] : parents) {
    if (pid != root) children.emplace(ppid, pid);
  }
  std::vector<pid_t> result;
  std::vector<pid_t> level{root};
  for (int depth = 1; depth <= kMaxParentSteps && !level.empty(); ++depth) {
    std::vector<pid_t> next;
    for (pid_t parent : level) {
      auto [first, last] = children.equal_range(parent);
      for (auto it = first; it != last; ++it) next.push_back(it->second);
    }
    result.insert(result.end(), next.begin(), next.end());
    level = std::move(next);
  }
  return result;
}

std::string read() {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return {};
  SpawnRequest request{"/bin/ps", {"-A", "-o", "pid=,ppid="}, std::nullopt, std::nullopt, fds[1]};
  SpawnResult spawned = spawnProcess(request);
  // Closing our write end now lets the read below end at the listing's end, or at once if
  // "/bin/ps" could not be started.
  close(fds[1]);
  std::string output;
  char buffer[16384];
  for (;;) {
    ssize_t n = ::read(fds[0], buffer, sizeof buffer);
    if (n > 0) {
      output.append(buffer, static_cast<std::size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      break;
    }
  }
  close(fds[0]);
  if (spawned.pid > 0) waitForExit(spawned.pid);
  return output;
}

}  // namespace kestravine::process_listing
