// plain() on any text: never an escape character in the result, no blank at either end, valid
// UTF-8 out, and cleaning twice changes nothing.
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "env/plain.h"
#include "env/utf8.h"

namespace {

bool isBlank(UChar32 c) {
  return c == '\t' || u_charType(c) == U_SPACE_SEPARATOR;
}

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // plain() takes text: make the bytes valid UTF-8 the way the output reader does.
  std::string text;
  kestravine::appendUtf8Replacing(text, {reinterpret_cast<const char*>(data), size});
  const std::string once = kestravine::plain(text);

  check(once.find('\x1b') == std::string::npos);
  const auto* s = reinterpret_cast<const std::uint8_t*>(once.data());
  const auto n = static_cast<std::int32_t>(once.size());
  std::int32_t i = 0;
  while (i < n) {
    UChar32 c;
    U8_NEXT(s, i, n, c);
    check(c >= 0);
  }
  if (n > 0) {
    std::int32_t first = 0;
    std::int32_t last = n;
    UChar32 c;
    U8_NEXT(s, first, n, c);
    check(!isBlank(c));
    U8_PREV(s, 0, last, c);
    check(!isBlank(c));
  }
  check(kestravine::plain(once) == once);
  return 0;
}
