#include "process/step_mark.h"

#include <gtest/gtest.h>

namespace kestravine {
namespace {

using namespace std::string_literals;

// An environment as /proc/<pid>/environ holds it: entries, each ending in NUL.
TEST(StepMark, IsCarriedOnlyAsAWholeEntry) {
  const StepMark mark("7-1-ab", "/h");
  const std::pair<std::string, bool> table[] = {
      {"KESTRAVINE_STEP=7-1-ab\0"s, true},
      {"A=1\0KESTRAVINE_STEP=7-1-ab\0B=2\0"s, true},
      {"A=1\0KESTRAVINE_STEP=7-1-ab"s, true},  // a last entry without its NUL
      {"KESTRAVINE_STEP=7-1-abc\0"s, false},
      {"KESTRAVINE_STEP=7-1-a\0"s, false},
      {"XKESTRAVINE_STEP=7-1-ab\0"s, false},
      {"A=KESTRAVINE_STEP=7-1-ab\0"s, false},
      {""s, false},
  };
  for (const auto& [environment, carried] : table)
    EXPECT_EQ(mark.carriedBy(environment), carried) << environment;
}

}  // namespace
}  // namespace kestravine
