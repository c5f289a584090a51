#pragma once

#include <string>
#include <string_view>

namespace kestravine {

// How wide text stands in a terminal, in display columns: East Asian wide and fullwidth
// characters take two, combining marks and format characters none, everything else one
// (ambiguous characters such as "…" one, as terminals set them outside East Asian locales).
// Ill-formed UTF-8 counts one column a byte. Stateless; any thread.
namespace display_width {

int columns(std::string_view utf8);

// `utf8` cut to at most `width` columns, ending in "…" where it was cut; whole characters only,
// so a wide character that would straddle the edge goes too. Empty for a width below 1.
std::string fit(std::string_view utf8, int width);

}  // namespace display_width
}  // namespace kestravine
