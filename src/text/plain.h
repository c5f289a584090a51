#pragma once

#include <string>
#include <string_view>

namespace kestravine {

// Cleans one line of terminal output for display: removes escape sequences (ESC + one
// character; ESC "[" up to and including the first letter) and trims blanks (Unicode Zs and
// tab) at both ends. Characters are extended grapheme clusters; a letter is a cluster whose
// first code point is Alphabetic.
//
// Precondition: `line` is valid UTF-8 without its line end. Stateless; any thread.
std::string plain(std::string_view line);

}  // namespace kestravine
