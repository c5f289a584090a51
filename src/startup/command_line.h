#pragma once

#include <optional>

namespace kestravine {

// The options the launcher answers itself, before any window: --help (-h) and --version print
// to stdout. Returns the exit status when one of them was given, nothing otherwise. Every other
// argument is left alone: Qt takes its own (-platform and the like), and whatever a desktop
// passes (a file, an address) is ignored.
std::optional<int> answerCommandLine(int argc, char** argv);

}  // namespace kestravine
