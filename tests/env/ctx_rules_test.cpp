#include <gtest/gtest.h>

#include "env/ctx.h"

namespace kestravine {
namespace {

TEST(PortOffset, AcceptsOnlyDecimalsBelowTwentyThousand) {
  const std::pair<const char*, std::int64_t> table[] = {
      {"", 0},    {"abc", 0},       {" 5", 0},  {"5 ", 0},    {"0x10", 0},
      {"+", 0},   {"-", 0},         {"-1", 0},  {"20000", 0}, {"99999999999999999999", 0},
      {"0", 0},   {"-0", 0},        {"+0", 0},  {"7", 7},     {"+7", 7},
      {"007", 7}, {"19999", 19999}, {"+-7", 0}, {"++7", 0},   {"1_000", 0},
      {"٣", 0},   {"-20000", 0}};
  for (const auto& [value, expected] : table) {
    EXPECT_EQ(ctx_rules::portOffset(value), expected) << '"' << value << '"';
  }
}

TEST(KestravineHome, UsedAsSetWhenNonEmptyElseUnderUserHome) {
  using Env = std::map<std::string, std::string>;
  struct Case {
    Env env;
    std::string userHome;
    std::string expected;
  };
  const Case table[] = {
      {{}, "/Users/demo", "/Users/demo/.kestravine"},
      {{{"KESTRAVINE_HOME", ""}}, "/Users/demo/", "/Users/demo/.kestravine"},
      {{}, "/", "/.kestravine"},
      {{{"KESTRAVINE_HOME", "/tmp/x/"}}, "/Users/demo", "/tmp/x/"},
      {{{"KESTRAVINE_HOME", "~/x"}}, "/Users/demo", "~/x"},
      {{{"KESTRAVINE_HOME", " "}}, "/Users/demo", " "},
  };
  for (const auto& c : table) {
    EXPECT_EQ(ctx_rules::kestravineHome(c.env, c.userHome), c.expected) << c.expected;
  }
}

TEST(UserHome, FallsBackToPasswordDatabaseWhenHomeIsUnsetOrEmpty) {
  EXPECT_EQ(ctx_rules::userHome({{"HOME", "/home/x"}}), "/home/x");
  std::string fromDatabase = ctx_rules::userHome({});
  EXPECT_FALSE(fromDatabase.empty());
  EXPECT_EQ(ctx_rules::userHome({{"HOME", ""}}), fromDatabase);
}

TEST(ResourceDir, SharedDirectoryBesideBinElseBundleRule) {
  auto exists = [](const std::string& path) { return path == "/opt/k/bin/../share/kestravine"; };
  auto none = [](const std::string&) { return false; };
  EXPECT_EQ(ctx_rules::resourceDir("/opt/k/bin", exists), "/opt/k/share/kestravine");
  EXPECT_EQ(ctx_rules::resourceDir("/Apps/K.app", none), "/Apps/K.app/Contents/Resources");
}

}  // namespace
}  // namespace kestravine
