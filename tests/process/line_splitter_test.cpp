#include "process/line_splitter.h"

#include <gtest/gtest.h>

namespace kestravine {
namespace {

using Lines = std::vector<std::string>;
constexpr std::size_t kCap = 16384;

// Lines as delivered, a cut one marked with a trailing "|cut".
Lines split(const std::vector<std::string>& chunks) {
  Lines lines;
  LineSplitter splitter;
  auto sink = [&](std::string_view line, bool cut) {
    lines.push_back(std::string(line) + (cut ? "|cut" : ""));
  };
  for (const auto& chunk : chunks) splitter.feed(chunk, sink);
  splitter.finish(sink);
  return lines;
}

TEST(LineSplitter, SplitsAtBareLineFeedsAcrossChunksAndCutsAtTheCap) {
  const std::string full(kCap, 'a');
  std::string han;
  for (std::size_t i = 0; i < kCap; ++i) han += "\u4e2d";
  const std::pair<std::vector<std::string>, Lines> table[] = {
      {{"a\n\n   \nb"}, {"a", "", "   ", "b"}},
      {{"no line end"}, {"no line end"}},
      {{"x\r\ny\n"}, {"x\r\ny"}},
      {{"x\r", "\ny\n"}, {"x\r\ny"}},  // CR ends one chunk, LF starts the next
      {{"x\r", "\n"}, {"x\r\n"}},
      {{"x\r\r\n", "y\n"}, {"x\r\r\ny"}},
      {{"a\n", "\n", "b"}, {"a", "", "b"}},
      {{"a\rb\n"}, {"a\rb"}},  // progress output stays in the line
      {{"ab", "cd", "\nef\n"}, {"abcd", "ef"}},
      {{"\xe4\xb8", "\xad\n"}, {"\ufffd\ufffd"}},  // three-byte character split across reads
      {{"\xc3", "\xa9\n"}, {"\ufffd\ufffd"}},      // two-byte character split across reads
      {{"\xe4\xb8\xad\n"}, {"\u4e2d"}},
      // Invalid UTF-8: one U+FFFD per maximal ill-formed part (a truncated character, an overlong
      // form, a surrogate, a code point above U+10FFFF: one for each byte of the last three).
      {{"a\xe4\xb8-\xc0\xaf\n"}, {"a\ufffd-\ufffd\ufffd"}},
      {{"\xed\xa0\x80\xf4\x90\x80\x80\n"}, {"\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd"}},
      {{""}, {}},
      // Lines longer than the cap, counted in code points, are cut and the rest dropped.
      {{full + "\nb\n"}, {full, "b"}},                          // exactly at the cap: whole
      {{full + "x\nb\n"}, {full + "|cut", "b"}},                // one more: cut
      {{full.substr(1), "axy", "z\nb"}, {full + "|cut", "b"}},  // cap reached inside a chunk
      {{han + "\u4e2d\n"}, {han + "|cut"}},                     // counted in code points, not bytes
      {{full + "x\r", "\nstill the cut line\nb"}, {full + "|cut", "b"}},  // CR LF while dropping
      {{full + "x"}, {full + "|cut"}},  // cut line at the end of output
  };
  for (const auto& [chunks, expected] : table) EXPECT_EQ(split(chunks), expected);
}

}  // namespace
}  // namespace kestravine
