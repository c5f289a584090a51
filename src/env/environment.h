#pragma once

#include <map>
#include <string>

namespace kestravine {

// The process environment as it is at the moment of the call. Where a name occurs twice the
// first definition wins, as getenv() sees it. Any thread, as long as nobody changes the
// environment at the same time.
std::map<std::string, std::string> processEnvironment();

}  // namespace kestravine
