// What becomes of a command's output, on any bytes. Cut into arbitrary reads (the first byte
// chooses the cuts), the splitter gives exactly the lines it gives for the bytes in one piece.
// Every line is non-empty, holds no more than the cap (and its cut mark), no line end and no
// escape character, is valid UTF-8, and cleaning it again changes nothing.
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "text/line_splitter.h"
#include "text/plain.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

void checkShown(const std::string& line) {
  check(!line.empty() && line.find_first_of("\x1b\r\n") == std::string::npos);
  check(kestravine::plain(line) == line);
  const auto* s = reinterpret_cast<const std::uint8_t*>(line.data());
  const auto n = static_cast<std::int32_t>(line.size());
  std::size_t codePoints = 0;
  for (std::int32_t i = 0; i < n; ++codePoints) {
    UChar32 c = 0;
    U8_NEXT(s, i, n, c);
    check(c >= 0);
  }
  check(codePoints <= kestravine::LineSplitter::kMaxLineCharacters + 1);  // the cut mark
}

// The lines of `bytes`, fed in one piece or in reads of 1 to 7 bytes chosen by `seed`.
std::vector<std::string> split(std::string_view bytes, bool whole, unsigned seed) {
  std::vector<std::string> lines;
  kestravine::LineSplitter splitter;
  auto sink = [&](std::string_view line) { lines.emplace_back(line); };
  while (!bytes.empty()) {
    seed = seed * 1103515245u + 12345u;
    const std::size_t n =
        whole ? bytes.size() : std::min<std::size_t>(bytes.size(), 1 + (seed >> 16) % 7);
    splitter.feed(bytes.substr(0, n), sink);
    bytes.remove_prefix(n);
  }
  splitter.finish(sink);
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const auto whole = split(bytes, true, 0);
  check(split(bytes, false, data[0]) == whole);
  std::ranges::for_each(whole, checkShown);
  return 0;
}
