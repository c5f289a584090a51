#include "text/line_splitter.h"

#include <gtest/gtest.h>

namespace kestravine {
namespace {

using Lines = std::vector<std::string>;
constexpr std::size_t kCap = 16384;

Lines split(const std::vector<std::string>& chunks) {
  Lines lines;
  LineSplitter splitter;
  auto sink = [&](std::string_view line) { lines.emplace_back(line); };
  for (const auto& chunk : chunks) splitter.feed(chunk, sink);
  splitter.finish(sink);
  return lines;
}

// What a terminal would leave of each line, cleaned; the chunks a pipe was read in never show.
TEST(LineSplitter, GivesTheLinesATerminalWouldShowWhateverTheReads) {
  const std::string full(kCap, 'a');
  const std::string cut = full + "\u2026";
  std::string han;
  for (std::size_t i = 0; i < kCap; ++i) han += "\u4e2d";
  const std::pair<std::vector<std::string>, Lines> table[] = {
      {{"a\n\n   \n\x1b[1mb\x1b[0m "}, {"a", "b"}},  // cleaned; empty and blank lines dropped
      {{"no line end"}, {"no line end"}},
      {{"ab", "cd", "\nef\n"}, {"abcd", "ef"}},
      {{""}, {}},
      // CR LF ends a line as LF does, also split across reads; a bare CR starts it over, and
      // the line shows the last stretch that is not empty once cleaned.
      {{"x\r\ny\r\n"}, {"x", "y"}},
      {{"x\r", "\ny\n"}, {"x", "y"}},
      {{"\r 10%\r 20%\r100%\n"}, {"100%"}},
      {{"50%\r", "\x1b[2K\r  \n"}, {"50%"}},  // what follows the last CR comes out empty
      {{"a\rb", "\rc"}, {"c"}},               // at the end of output too
      {{"\r\r\n\r\n"}, {}},
      // A character that a read splits is completed by the next; what is ill-formed in the
      // whole stream becomes one U+FFFD per maximal ill-formed part, also across reads.
      {{"\xe5\xae", "\x89\xe8", "\xa3\x85\n"}, {"安装"}},
      {{"\xf0", "\x9f", "\x98", "\x80\n"}, {"\U0001F600"}},
      {{"\xc3", "\xa9\n"}, {"\u00e9"}},
      {{"\xe4\xb8", "-\n"}, {"\ufffd-"}},  // truncated character
      {{"\xe4\xb8", "\xe4\xb8\xad\n"}, {"\ufffd\u4e2d"}},
      {{"a\xe4\xb8"}, {"a\ufffd"}},  // cut short by the end of output
      {{"\xed", "\xa0\x80\xc0\xaf\n"}, {"\ufffd\ufffd\ufffd\ufffd\ufffd"}},  // surrogate, overlong
      {{"\xf4\x90\x80\x80\xff\n"}, {"\ufffd\ufffd\ufffd\ufffd\ufffd"}},      // above U+10FFFF
      // Stretches longer than the cap, counted in code points, are cut and the rest dropped.
      {{full + "\nb\n"}, {full, "b"}},                              // exactly at the cap
      {{full + "x\nb\n"}, {cut, "b"}},                              // one more: cut
      {{full.substr(1), "axy", "z\nb"}, {cut, "b"}},                // cap reached in a chunk
      {{han + "\u4e2d\n"}, {han + "\u2026"}},                       // code points, not bytes
      {{full + "x\r", "\nnext line\nb"}, {cut, "next line", "b"}},  // CR LF while dropping
      {{full + "x\rshort\n"}, {"short"}},                           // a CR starts over
      {{full + "x"}, {cut}},                                        // at the end of output
  };
  for (const auto& [chunks, expected] : table) EXPECT_EQ(split(chunks), expected) << chunks[0];
}

}  // namespace
}  // namespace kestravine
