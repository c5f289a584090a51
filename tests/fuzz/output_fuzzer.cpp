// What becomes of a command's output, on any bytes. Cut into arbitrary reads (the first byte
// chooses the cuts), the splitter gives as many lines as for the bytes in one piece, in order,
// the all-ASCII ones unchanged (CR LF pairs split across reads included); no line is longer than
// the cap, and only a line at the cap is cut. Cleaned, a line holds no escape character and only
// valid UTF-8, and cleaning it again changes nothing (so no blank is left at either end).
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "env/plain.h"
#include "process/line_splitter.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

void checkCleaned(const std::string& line) {
  const std::string once = kestravine::plain(line);
  check(once.find('\x1b') == std::string::npos && kestravine::plain(once) == once);
  const auto* s = reinterpret_cast<const std::uint8_t*>(once.data());
  const auto n = static_cast<std::int32_t>(once.size());
  for (std::int32_t i = 0; i < n;) {
    UChar32 c = 0;
    U8_NEXT(s, i, n, c);
    check(c >= 0);
  }
}

// The lines of `bytes`, fed in one piece or in reads of 1 to 7 bytes chosen by `seed`.
std::vector<std::string> split(std::string_view bytes, bool whole, unsigned seed) {
  std::vector<std::string> lines;
  kestravine::LineSplitter splitter;
  auto sink = [&](std::string_view line, bool cut) {
    const auto codePoints =
        std::ranges::count_if(line, [](unsigned char c) { return (c & 0xC0) != 0x80; });
    check(codePoints <= kestravine::LineSplitter::kMaxLineCharacters);
    check(!cut || codePoints == kestravine::LineSplitter::kMaxLineCharacters);
    lines.emplace_back(line);
  };
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
  const auto chunked = split(bytes, false, data[0]);
  check(whole.size() == chunked.size());
  for (std::size_t i = 0; i < whole.size(); ++i) {
    const bool ascii = std::ranges::all_of(whole[i], [](unsigned char c) { return c < 0x80; });
    check(!ascii || whole[i] == chunked[i]);
    checkCleaned(whole[i]);
  }
  return 0;
}
