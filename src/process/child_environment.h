#pragma once

#include <map>
#include <string>
#include <vector>

#include "process/step_mark.h"

namespace kestravine {

// The environment of every command, as "NAME=value" entries: the launcher's own `environment`,
// PATH set to <productHome>/node/bin followed by ":" and the launcher's PATH (or
// "/usr/bin:/bin:/usr/sbin:/sbin" when it has none), then `extra` laid over it, and last the
// command's step mark (its two entries), which neither the launcher's environment nor `extra` can
// set. Stateless; any thread.
std::vector<std::string> childEnvironment(std::map<std::string, std::string> environment,
                                          const std::string& productHome,
                                          std::map<std::string, std::string> extra,
                                          const StepMark& mark);

}  // namespace kestravine
