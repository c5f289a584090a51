#include "env/utf8.h"

#include <unicode/utf8.h>

#include <cstdint>

namespace kestravine {

void appendUtf8Replacing(std::string& out, std::string_view bytes) {
  const auto* s = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const auto length = static_cast<std::int32_t>(bytes.size());
  // Most output is ASCII: copy runs of it in one go and decode only from the first other byte.
  std::int32_t i = 0;
  while (i < length && s[i] < 0x80) ++i;
  out.append(bytes.data(), static_cast<std::size_t>(i));
  while (i < length) {
    if (s[i] < 0x80) {
      out.push_back(static_cast<char>(s[i++]));
      continue;
    }
    UChar32 c;
    U8_NEXT_OR_FFFD(s, i, length, c);
    char encoded[U8_MAX_LENGTH];
    std::int32_t n = 0;
    U8_APPEND_UNSAFE(encoded, n, c);
    out.append(encoded, static_cast<std::size_t>(n));
  }
}

}  // namespace kestravine
