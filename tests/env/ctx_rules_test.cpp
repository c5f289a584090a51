#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

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
  const std::tuple<const char*, std::string, std::string> table[] = {
      {nullptr, "/Users/demo", "/Users/demo/.kestravine"},
      {"", "/Users/demo/", "/Users/demo/.kestravine"},
      {nullptr, "/", "/.kestravine"},
      {"/tmp/x/", "/Users/demo", "/tmp/x/"},
      {"~/x", "/Users/demo", "~/x"},
      {" ", "/Users/demo", " "},
  };
  for (const auto& [value, userHome, expected] : table) {
    std::map<std::string, std::string> env;
    if (value) env["KESTRAVINE_HOME"] = value;
    EXPECT_EQ(ctx_rules::kestravineHome(env, userHome), expected) << expected;
  }
}

TEST(UserHome, FallsBackToPasswordDatabaseWhenHomeIsUnsetOrEmpty) {
  const std::string fromDatabase = getpwuid(getuid())->pw_dir;
  EXPECT_EQ(ctx_rules::userHome({{"HOME", "/home/x"}}), "/home/x");
  EXPECT_EQ(ctx_rules::userHome({}), fromDatabase);
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
