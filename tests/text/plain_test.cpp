#include "text/plain.h"

#include <gtest/gtest.h>

namespace kestravine {
namespace {

// "\x1b" is ESC; "\u0301" a combining acute accent; "\u3000" an ideographic space.
TEST(Plain, DropsEscapeSequencesAndTrimsBlanks) {
  const std::pair<std::string, std::string> table[] = {
      {"", ""},
      {" \t\u00a0\u3000 ", ""},
      {"  \x1b[32mword\x1b[0m  ", "word"},
      {"text\x1b", "text"},                 // a lone ESC at the end
      {"\x1b(B", "B"},                      // ESC takes one character with it
      {"\x1b\x1b[31m", "[31m"},             // ...which may be another ESC
      {"\x1b]0;title\x07", "0;title\x07"},  // OSC keeps its BEL
      {"keep\x1b[12;", "keep"},             // CSI without a letter runs to the end
      {"\x1b[2~word", "ord"},               // a tilde is no letter
      {"\x1b[\u4e2d\u6587", "\u6587"},      // an ideograph is one
      {"\x1b[1\u03b1rest", "rest"},         // so is a Greek letter
      {"\x1b[1a\u0301rest", "rest"},        // a letter's cluster goes whole
      {"\x1b[\u0301xy", "xy"},              // "[" with a mark is one character
      {"a\x1b\r\nb", "ab"},                 // ESC takes a CR LF cluster
      {"\x1b[38;5;208mhot", "hot"},         // digits are no letters
      {"\x1b[2K\rtext", "\rtext"},
      {"\t\u00a0x\u00a0\t", "x"},
      {"x\r", "x\r"},  // CR and form feed are no blanks
      {"x\f", "x\f"},
      {" a \u3000 b ", "a \u3000 b"},
      {" \x1b[0m x \x1b[0m", "x"},  // trimmed after the escapes are gone
      {"\ufffd", "\ufffd"},
      {std::string("a\0b", 3), std::string("a\0b", 3)},
  };
  for (const auto& [input, expected] : table) EXPECT_EQ(plain(input), expected) << input;
}

}  // namespace
}  // namespace kestravine
