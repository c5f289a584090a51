#include "env/environment.h"

#include <string_view>

extern char** environ;

namespace kestravine {

std::map<std::string, std::string> processEnvironment() {
  std::map<std::string, std::string> env;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    std::string_view text(*entry);
    auto eq = text.find('=');
    if (eq == std::string_view::npos) continue;
    env.emplace(std::string(text.substr(0, eq)), std::string(text.substr(eq + 1)));
  }
  return env;
}

}  // namespace kestravine
