#include "process/process_listing.h"

#include <gmock/gmock.h>
#include <unistd.h>

namespace kestravine {
namespace {

using ::testing::UnorderedElementsAreArray;
using Parents = std::unordered_map<pid_t, pid_t>;

TEST(ProcessListing, ParsesTwoNumbersPerLineAndSkipsTheRest) {
  const std::string listing =
      "    1     0\n   10     1 extra fields\n\n   11\n   12   abc\n   13   1x\n"
      "   14 99999999999\n"                  // beyond 32 bits
      "\t15 1\n"                             // a tab is no separator
      "   16    10\n   16    11\n+17 -1\n";  // a later line wins
  EXPECT_EQ(process_listing::parse(listing), (Parents{{1, 0}, {10, 1}, {16, 11}, {17, -1}}));

  const Parents real = process_listing::parse(process_listing::read());
  ASSERT_TRUE(real.count(getpid()));
  EXPECT_EQ(real.at(getpid()), getppid());
}

TEST(ProcessListing, DescendantsWalkAtMostTwoHundredStepsAndEndCircles) {
  // A small tree under 100, a process its own parent, a circle without the root.
  Parents parents = {{100, 1},   {101, 100}, {102, 101}, {103, 100},
                     {200, 200}, {300, 301}, {301, 300}};
  EXPECT_THAT(process_listing::descendants(parents, 100),
              UnorderedElementsAreArray({101, 102, 103}));
  EXPECT_TRUE(process_listing::descendants(parents, 999).empty());
  // The root listed as the child of its own descendant is still never in the result.
  EXPECT_THAT(process_listing::descendants({{5, 6}, {6, 5}}, 5), UnorderedElementsAreArray({6}));

  // A chain 1000 <- 1001 <- ... : depth 200 is reached, depth 201 is not.
  Parents chain;
  for (pid_t p = 1001; p <= 1201; ++p) chain[p] = p - 1;
  const auto found = process_listing::descendants(chain, 1000);
  EXPECT_EQ(found.size(), 200u);
  EXPECT_EQ(std::count(found.begin(), found.end(), 1200), 1);
}

}  // namespace
}  // namespace kestravine
