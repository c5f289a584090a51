#include "process/child_environment.h"

namespace kestravine {

std::vector<std::string> childEnvironment(std::map<std::string, std::string> environment,
                                          const std::string& productHome,
                                          std::map<std::string, std::string> extra,
                                          const StepMark& mark) {
  const auto path = environment.find("PATH");
  environment["PATH"] =
      productHome + "/node/bin" + ":" +
      (path != environment.end() ? path->second : "/usr/bin:/bin:/usr/sbin:/sbin");
  for (auto& [name, value] : extra) environment.insert_or_assign(name, std::move(value));
  environment.erase(std::string(StepMark::kVariable));
  std::vector<std::string> entries;
  entries.reserve(environment.size() + 1);
  for (const auto& [name, value] : environment) entries.push_back(name + "=" + value);
  entries.push_back(mark.entry());
  return entries;
}

}  // namespace kestravine
