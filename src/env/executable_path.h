#pragma once

#include <string>

namespace kestravine {

// Absolute path of the running executable, links resolved; empty if it cannot be found.
// Stateless; any thread.
std::string executablePath();

}  // namespace kestravine
