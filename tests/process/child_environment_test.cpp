#include "process/child_environment.h"

#include <gtest/gtest.h>

namespace kestravine {
namespace {

using Env = std::map<std::string, std::string>;
using Entries = std::vector<std::string>;

// The launcher's environment, the product's node first on PATH, extra variables laid over it,
// the step's mark and its home last, which nothing else sets.
TEST(ChildEnvironment, ComposesPathExtraVariablesAndTheMark) {
  const StepMark mark("7-1-ab", "/real/p");
  const std::string node = "/p/node/bin:";
  const std::tuple<Env, Env, Entries> table[] = {
      {{{"PATH", "/a:/b"}, {"HOME", "/h"}}, {}, {"HOME=/h", "PATH=" + node + "/a:/b"}},
      {{{"PATH", ""}}, {}, {"PATH=" + node}},  // set but empty: nothing after the colon
      {{}, {}, {"PATH=" + node + "/usr/bin:/bin:/usr/sbin:/sbin"}},
      {{{"PATH", "/a"}, {"HOME", "/h"}},
       {{"PATH", "/only"}, {"HOME", "/else"}, {"NEW", "x=y"}},
       {"HOME=/else", "NEW=x=y", "PATH=/only"}},
      {{{"KESTRAVINE_STEP", "inherited"}, {"KESTRAVINE_STEP_HOME", "/other"}},
       {{"KESTRAVINE_STEP", "given"}, {"KESTRAVINE_STEP_HOME", "/given"}},
       {"PATH=" + node + "/usr/bin:/bin:/usr/sbin:/sbin"}},
  };
  for (const auto& [environment, extra, expected] : table) {
    Entries entries = childEnvironment(environment, "/p", extra, mark);
    ASSERT_GE(entries.size(), 2u);
    EXPECT_EQ(entries.back(), "KESTRAVINE_STEP_HOME=/real/p");
    entries.pop_back();
    EXPECT_EQ(entries.back(), "KESTRAVINE_STEP=7-1-ab");
    entries.pop_back();
    EXPECT_EQ(entries, expected);
  }
}

}  // namespace
}  // namespace kestravine
