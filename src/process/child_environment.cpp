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
  environment.erase(std::string(StepMark::kHomeVariable));
  std::vector<std::string> entries;
  entries.reserve(environment.size() + 2);
  for (const auto& [name, value] : environment) entries.push_back(name + "=" + value);
  entries.push_back(mark.entry());
  entries.push_back(mark.homeEntry());
  return entries;
}

}  // namespace kestravine
