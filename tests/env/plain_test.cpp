#include "env/plain.h"

#include <gtest/gtest.h>

namespace kestravine {
namespace {

struct PlainCase {
  const char* name;
  std::string input;
  std::string expected;
  friend void PrintTo(const PlainCase& c, std::ostream* os) { *os << c.name; }
};

class PlainTest : public ::testing::TestWithParam<PlainCase> {};

TEST_P(PlainTest, CleansOneLine) {
  EXPECT_EQ(plain(GetParam().input), GetParam().expected);
}

// ESC stands for U+001B; "\u0301" is a combining acute accent; "\u3000" an ideographic space.
INSTANTIATE_TEST_SUITE_P(
    Table, PlainTest,
    ::testing::Values(PlainCase{"Empty", "", ""}, PlainCase{"OnlyBlanks", " \t\u00a0\u3000 ", ""},
                      PlainCase{"ColouredWordPadded", "  \x1b[32mword\x1b[0m  ", "word"},
                      PlainCase{"LoneEscapeAtEnd", "text\x1b", "text"},
                      PlainCase{"EscapePlusOneCharacter", "\x1b(B", "B"},
                      PlainCase{"EscapeEscapeLeavesBracketText", "\x1b\x1b[31m", "[31m"},
                      PlainCase{"OscKeepsBel", "\x1b]0;title\x07", "0;title\x07"},
                      PlainCase{"CsiWithoutLetterRunsToEnd", "keep\x1b[12;", "keep"},
                      PlainCase{"TildeIsNoLetter", "\x1b[2~word", "ord"},
                      PlainCase{"IdeographEndsSequence", "\x1b[\u4e2d\u6587", "\u6587"},
                      PlainCase{"EraseLineThenCr", "\x1b[2K\rtext", "\rtext"},
                      PlainCase{"TrimsTabsAndNoBreakSpaces", "\t\u00a0x\u00a0\t", "x"},
                      PlainCase{"KeepsTrailingCrAndFormFeed", "x\r", "x\r"},
                      PlainCase{"KeepsFormFeed", "x\f", "x\f"},
                      PlainCase{"GreekLetterEndsSequence", "\x1b[1\u03b1rest", "rest"},
                      PlainCase{"LetterClusterGoesWhole", "\x1b[1a\u0301rest", "rest"},
                      PlainCase{"BracketWithMarkIsOneCharacter", "\x1b[\u0301xy", "xy"},
                      PlainCase{"EscapeSkipsCrLfCluster", "a\x1b\r\nb", "ab"},
                      PlainCase{"DigitsAreNoLetters", "\x1b[38;5;208mhot", "hot"},
                      PlainCase{"BlanksInsideStay", " a \u3000 b ", "a \u3000 b"},
                      PlainCase{"BlankBeforeEscapeTrimmedAfterRemoval", " \x1b[0m x \x1b[0m", "x"},
                      PlainCase{"ReplacementCharacterIsText", "\ufffd", "\ufffd"},
                      PlainCase{"NulIsText", std::string("a\0b", 3), std::string("a\0b", 3)}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace kestravine
