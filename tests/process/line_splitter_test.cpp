#include "process/line_splitter.h"

#include <gtest/gtest.h>

namespace kestravine {
namespace {

std::vector<std::string> split(const std::vector<std::string>& chunks) {
  std::vector<std::string> lines;
  LineSplitter splitter;
  auto sink = [&](std::string_view line) { lines.emplace_back(line); };
  for (const auto& chunk : chunks) splitter.feed(chunk, sink);
  splitter.finish(sink);
  return lines;
}

using Lines = std::vector<std::string>;

TEST(LineSplitter, SplitsAtBareLineFeedsAcrossChunks) {
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
      {{""}, {}},
  };
  for (const auto& [chunks, expected] : table) EXPECT_EQ(split(chunks), expected);
}

TEST(LineSplitter, KeepsOnlyTheUnfinishedTail) {
  LineSplitter splitter;
  std::size_t count = 0;
  auto sink = [&](std::string_view) { ++count; };
  for (int i = 0; i < 1000; ++i) splitter.feed("line\nline\npart", sink);
  EXPECT_EQ(count, 2000u);  // each "part" joins the next chunk's first line
  EXPECT_EQ(splitter.bufferedBytes(), 4u);
}

}  // namespace
}  // namespace kestravine
