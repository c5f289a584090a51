#include "env/utf8.h"

#include <gtest/gtest.h>

namespace kestravine {
namespace {

TEST(Utf8, OneReplacementPerMaximalIllFormedSubpart) {
  const std::pair<std::string, std::string> table[] = {
      {"plain ascii", "plain ascii"},
      {"\u4e2d\u6587", "\u4e2d\u6587"},
      {"\xff", "\ufffd"},
      {"a\xe4\xb8", "a\ufffd"},      // truncated three-byte character: one subpart
      {"\xb8\xad", "\ufffd\ufffd"},  // stray continuation bytes: one each
      {"\xe4\xb8"
       "A",
       "\ufffd"
       "A"},
      {"\xc0\xaf", "\ufffd\ufffd"},                      // overlong form
      {"\xed\xa0\x80", "\ufffd\ufffd\ufffd"},            // surrogate
      {"\xf4\x90\x80\x80", "\ufffd\ufffd\ufffd\ufffd"},  // above U+10FFFF
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
