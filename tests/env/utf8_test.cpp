#include "env/utf8.h"

#include <gtest/gtest.h>

namespace kestravine {
namespace {

TEST(Utf8, OneReplacementPerMaximalIllFormedSubpart) {
  const std::string r = "\ufffd";
  const std::pair<std::string, std::string> table[] = {
      {"plain ascii", "plain ascii"},
      {"\u4e2d\u6587", "\u4e2d\u6587"},
      {"\xff", r},
      {"a\xe4\xb8", "a" + r},  // truncated three-byte character: one subpart
      {"\xe4\xb8-", r + "-"},
      {"\xb8\xad", r + r},                  // stray continuation bytes: one each
      {"\xc0\xaf", r + r},                  // overlong form
      {"\xed\xa0\x80", r + r + r},          // surrogate
      {"\xf4\x90\x80\x80", r + r + r + r},  // above U+10FFFF
      {std::string("\0", 1), std::string("\0", 1)},
  };
  for (const auto& [bytes, expected] : table) {
    std::string out = "<";
    appendUtf8Replacing(out, bytes);
    EXPECT_EQ(out, "<" + expected);
  }
}

}  // namespace
}  // namespace kestravine
