#include "support/child_run.h"

#include <fstream>

#include "support/test_platform.h"

namespace kestravine::testing {

ChildRun::ChildRun(const std::string& program, const std::vector<std::string>& args,
                   std::optional<std::string> cwd, std::map<std::string, std::string> extraEnv) {
  child->start(
      program, args, std::move(cwd), std::move(extraEnv),
      [got = got](std::string line) {
        got->events.push_back("line:" + line);
        got->lines.push_back(std::move(line));
      },
      [got = got](std::int32_t status) {
        got->events.push_back("exit:" + std::to_string(status));
        got->exits.push_back(status);
      });
}

bool ChildRun::waitFor(std::size_t lines) {
  return platform().runUntil([&] { return !got->exits.empty() && got->lines.size() >= lines; });
}

std::string helper() {
  return TEST_HELPER;
}

bool isGone(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  if (!std::getline(stat, text)) return true;
  // The state follows the command name, which is in parentheses and may contain anything.
  auto close = text.rfind(')');
  return close == std::string::npos || close + 2 >= text.size() || text[close + 2] == 'Z';
}

}  // namespace kestravine::testing
