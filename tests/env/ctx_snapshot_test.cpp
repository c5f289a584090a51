// Run once per environment (see CMakeLists.txt): EXPECT_* name what Ctx must report.
#include <gtest/gtest.h>

#include <cstdlib>

#include "env/ctx.h"

namespace kestravine {
namespace {

TEST(CtxSnapshot, ReportsTheEnvironmentOfProcessStartAndIgnoresLaterChanges) {
  const char* expectedHome = std::getenv("EXPECT_HOME");
  const char* expectedOffset = std::getenv("EXPECT_PORT_OFFSET");
  ASSERT_NE(expectedHome, nullptr);
  ASSERT_NE(expectedOffset, nullptr);
  const std::string home = expectedHome;
  const std::int64_t offset = std::atoll(expectedOffset);

  EXPECT_EQ(Ctx::kestravineHome(), home);
  EXPECT_EQ(Ctx::portOffset(), offset);

  setenv("KESTRAVINE_HOME", "/changed", 1);
  setenv("ZORVEL_PORT_OFFSET", "42", 1);
  setenv("HOME", "/changed-home", 1);
  EXPECT_EQ(Ctx::kestravineHome(), home);
  EXPECT_EQ(Ctx::portOffset(), offset);
  EXPECT_EQ(Ctx::env().count("EXPECT_HOME"), 1u);
}

}  // namespace
}  // namespace kestravine
