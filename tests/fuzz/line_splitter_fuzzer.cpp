// Output cut into arbitrary chunks gives the same lines as the same bytes in one piece: for
// ASCII exactly the same lines (CR LF pairs split across chunks included); for any bytes the
// same number of lines, in the same order, the all-ASCII ones unchanged; and no line is longer
// than the cap. The first byte of the input chooses the cuts.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "process/line_splitter.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

std::vector<std::string> split(std::string_view bytes, const std::vector<std::size_t>& cuts) {
  std::vector<std::string> lines;
  kestravine::LineSplitter splitter;
  auto sink = [&](std::string_view line, bool cut) {
    // No line is ever longer than the cap, and only a line at the cap is cut.
    std::size_t codePoints = 0;
    for (unsigned char c : line) codePoints += (c & 0xC0) != 0x80;
    check(codePoints <= kestravine::LineSplitter::kMaxLineCharacters);
    check(!cut || codePoints == kestravine::LineSplitter::kMaxLineCharacters);
    lines.emplace_back(line);
  };
  std::size_t from = 0;
  for (std::size_t cut : cuts) {
    splitter.feed(bytes.substr(from, cut - from), sink);
    from = cut;
  }
  splitter.feed(bytes.substr(from), sink);
  splitter.finish(sink);
  return lines;
}

bool isAscii(std::string_view text) {
  for (unsigned char c : text) {
    if (c >= 0x80) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::vector<std::size_t> cuts;
  unsigned seed = data[0];
  for (std::size_t pos = 0; pos < bytes.size();) {
    seed = seed * 1103515245u + 12345u;
    pos += 1 + (seed >> 16) % 7;
    if (pos < bytes.size()) cuts.push_back(pos);
  }
  const auto whole = split(bytes, {});
  const auto chunked = split(bytes, cuts);
  check(whole.size() == chunked.size());
  if (isAscii(bytes)) check(whole == chunked);
  for (std::size_t i = 0; i < whole.size(); ++i) {
    if (isAscii(whole[i])) check(whole[i] == chunked[i]);
  }
  return 0;
}
