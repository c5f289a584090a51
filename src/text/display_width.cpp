#include "text/display_width.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

namespace kestravine::display_width {

namespace {

int widthOf(UChar32 c) {
  if (c < 0) return 1;  // an ill-formed byte, shown as one replacement
  const auto category = static_cast<UCharCategory>(u_charType(c));
  if (category == U_NON_SPACING_MARK || category == U_ENCLOSING_MARK || category == U_FORMAT_CHAR ||
      category == U_CONTROL_CHAR)
    return 0;
  const auto east = static_cast<UEastAsianWidth>(u_getIntPropertyValue(c, UCHAR_EAST_ASIAN_WIDTH));
  return east == U_EA_WIDE || east == U_EA_FULLWIDTH ? 2 : 1;
}

// Calls `each(begin, end, width)` for every character, in order, until it returns false.
template <typename Each>
void forEachCharacter(std::string_view utf8, Each each) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(utf8.data());
  const auto length = static_cast<int32_t>(utf8.size());
  for (int32_t i = 0; i < length;) {
    const int32_t begin = i;
    UChar32 c = 0;
    U8_NEXT(bytes, i, length, c);
    if (!each(static_cast<std::size_t>(begin), static_cast<std::size_t>(i), widthOf(c))) return;
  }
}

}  // namespace

int columns(std::string_view utf8) {
  int total = 0;
  forEachCharacter(utf8, [&](std::size_t, std::size_t, int width) {
    total += width;
    return true;
  });
  return total;
}

std::string fit(std::string_view utf8, int width) {
  if (width < 1) return {};
  if (columns(utf8) <= width) return std::string(utf8);
  // Room for the ellipsis, one column.
  std::size_t cut = 0;
  int used = 0;
  forEachCharacter(utf8, [&](std::size_t, std::size_t end, int w) {
    if (used + w > width - 1) return false;
    used += w;
    cut = end;
    return true;
  });
  return std::string(utf8.substr(0, cut)) + "…";
}

}  // namespace kestravine::display_width
