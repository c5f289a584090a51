#include <gtest/gtest.h>

#include <pwd.h>
#include <unistd.h>
#include <filesystem>

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

// An install's layout and an application bundle's, as real folders.
TEST(ResourceDir, SharedDirectoryBesideBinElseTheBundlesResources) {
  const std::filesystem::path root = std::filesystem::path(TEST_SCRATCH) / "layouts";
  std::filesystem::remove_all(root);
  for (const char* dir :
       {"opt/bin", "opt/share/kestravine", "K.app/Contents/MacOS", "K.app/Contents/Resources"})
    std::filesystem::create_directories(root / dir);
  auto isDirectory = [](const std::string& path) { return std::filesystem::is_directory(path); };
  EXPECT_EQ(ctx_rules::resourceDir(root / "opt/bin", isDirectory), root / "opt/share/kestravine");
  const std::string resources = ctx_rules::resourceDir(root / "K.app/Contents/MacOS", isDirectory);
  EXPECT_EQ(resources, root / "K.app/Contents/Resources");
  EXPECT_TRUE(std::filesystem::is_directory(resources));
}

}  // namespace
}  // namespace kestravine
