#include "text/display_width.h"

#include <gtest/gtest.h>

namespace kestravine {
namespace {

// Columns as a terminal sets them, and a cut that never splits a character nor passes the width.
TEST(DisplayWidth, CountsColumnsAndCutsToThem) {
  const std::tuple<std::string, int, std::string> table[] = {
      {"abc", 3, "abc"},
      {"abcd", 3, "ab…"},
      {"在装，第一次", 12, "在装，第一次"},
      {"在装，第一次", 11, "在装，第一…"},
      {"在装，第一次", 10, "在装，第…"},  // a wide character never straddles the edge
      {"e\u0301e", 2, "e\u0301e"},        // a combining mark takes no column
      {"ａｂ", 3, "ａ…"},                 // fullwidth forms are wide
      {"x", 0, ""},
  };
  for (const auto& [text, width, fitted] : table) {
    EXPECT_EQ(display_width::fit(text, width), fitted) << text << " " << width;
    EXPECT_LE(display_width::columns(display_width::fit(text, width)), std::max(width, 0)) << text;
  }
  EXPECT_EQ(display_width::columns("在装 ok"), 7);
  EXPECT_EQ(display_width::columns("\xff"), 1);  // an ill-formed byte shows as one character
}

}  // namespace
}  // namespace kestravine
