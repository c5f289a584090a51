#include "process/process_listing.h"

#include <string>

#include "system/spawn.h"
#include "system/system_calls.h"
#include "text/decimal.h"

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
  // Down from the root, one level per step: linear in the listing. The root is never expanded
  // again, so a circle through it ends there, and one elsewhere is never entered.
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
  // An environment of its own: ps needs nothing of the launcher's, and this runs on background
  // threads, which must not read the process environment while the main thread may change it.
  auto listing = spawnWithOutput(
      {"/bin/ps", {"-A", "-o", "pid=,ppid="}, {}, std::vector<std::string>{"LC_ALL=C"}, -1});
  if (listing.pid < 0) return {};  // an empty listing, at once
  std::string output = system_calls::readToEnd(listing.output.get());
  waitForExit(listing.pid);
  return output;
}

}  // namespace kestravine::process_listing
