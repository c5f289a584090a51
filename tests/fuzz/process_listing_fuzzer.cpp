// Any listing: parsing never fails, and the linear descendant search finds exactly the
// processes that walking each one's parents up to the root, at most 200 steps, finds.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string_view>

#include "process/process_listing.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

// The definition, process by process.
std::set<pid_t> walkUp(const std::unordered_map<pid_t, pid_t>& parents, pid_t root) {
  std::set<pid_t> found;
  for (const auto& [pid, ignored] : parents) {
    if (pid == root) continue;
    pid_t current = pid;
    for (int step = 0; step < 200; ++step) {
      const pid_t parent = parents.at(current);
      if (parent == root) {
        found.insert(pid);
        break;
      }
      if (!parents.count(parent)) break;
      current = parent;
    }
  }
  return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view listing(reinterpret_cast<const char*>(data), size);
  const auto parents = kestravine::process_listing::parse(listing);
  // Try the first listed pid, the first listed parent, and 1 as roots.
  std::set<pid_t> roots{1};
  if (!parents.empty()) {
    roots.insert(parents.begin()->first);
    roots.insert(parents.begin()->second);
  }
  for (pid_t root : roots) {
    const auto result = kestravine::process_listing::descendants(parents, root);
    const std::set<pid_t> unique(result.begin(), result.end());
    check(unique.size() == result.size());
    check(!unique.count(root));
    check(unique == walkUp(parents, root));
  }
  return 0;
}
