#pragma once

#include <string>
#include <string_view>

namespace kestravine {

// Appends `bytes`, decoded as UTF-8 on their own, to `out`: every ill-formed or truncated
// sequence becomes one U+FFFD per maximal ill-formed subpart. Stateless; any thread.
void appendUtf8Replacing(std::string& out, std::string_view bytes);

}  // namespace kestravine
