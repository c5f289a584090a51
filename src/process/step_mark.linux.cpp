#include "process/step_mark.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <random>

#include "system/proc_directory.h"

namespace kestravine {

namespace {

bool holdsEntry(std::string_view environment, std::string_view wanted) {
  for (std::size_t pos = 0; pos < environment.size();) {
    const std::size_t end = std::min(environment.find('\0', pos), environment.size());
    if (environment.substr(pos, end - pos) == wanted) return true;
    pos = end + 1;
  }
  return false;
}

}  // namespace

StepMark StepMark::fresh(const std::string& home) {
  static std::atomic<unsigned> count{0};
  std::random_device random;
  const auto bits = (static_cast<unsigned long long>(random()) << 32) | random();
  char token[64];
  std::snprintf(token, sizeof token, "%d-%u-%016llx", static_cast<int>(::getpid()), ++count, bits);
  return StepMark(token, home);
}

StepMark::StepMark(std::string token, const std::string& home)
    : entry_(std::string(kVariable) + "=" + token),
      homeEntry_(std::string(kHomeVariable) + "=" + home) {}

bool StepMark::carriedBy(std::string_view environment) const {
  return holdsEntry(environment, entry_);
}

bool StepMark::ofHome(std::string_view environment, const std::string& home) {
  return holdsEntry(environment, std::string(kHomeVariable) + "=" + home);
}

std::vector<ProcessIdentity> StepMark::carriers() const {
  std::vector<ProcessIdentity> found;
  for (pid_t pid : ProcDirectory::allPids()) {
    // Both reads go through one open directory, so they are about one process even if this
    // pid changes hands meanwhile; a zombie's environment reads empty.
    const auto dir = ProcDirectory::open(pid);
    if (!dir || !carriedBy(dir->read("environ"))) continue;
    if (auto identity = ProcessIdentity::of(*dir)) found.push_back(*identity);
  }
  return found;
}

}  // namespace kestravine
