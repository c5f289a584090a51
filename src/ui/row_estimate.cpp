#include "ui/row_estimate.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <QFontMetricsF>
#include <algorithm>
#include <cmath>
#include <cstdint>

namespace kestravine {

namespace {

constexpr int kTabColumns = 8;

}  // namespace

int estimatedRowHeight(std::string_view text, const QFont& font, int width) {
  const QFontMetricsF metrics(font);
  const double perLine = std::max(1.0, std::floor(width / metrics.horizontalAdvance('x')));
  double columns = 0;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  const auto length = static_cast<std::int32_t>(text.size());
  for (std::int32_t i = 0; i < length;) {
    if (bytes[i] < 0x80) {
      const bool tab = bytes[i++] == '\t';
      columns = tab ? (std::floor(columns / kTabColumns) + 1) * kTabColumns : columns + 1;
      continue;
    }
    UChar32 c = 0;
    U8_NEXT(bytes, i, length, c);
    const auto eastAsian = u_getIntPropertyValue(c, UCHAR_EAST_ASIAN_WIDTH);
    columns += (eastAsian == U_EA_WIDE || eastAsian == U_EA_FULLWIDTH) ? 2 : 1;
  }
  const int lines = std::max(1, static_cast<int>(std::ceil(columns / perLine)));
  return static_cast<int>(std::ceil(lines * metrics.height()));
}

}  // namespace kestravine
