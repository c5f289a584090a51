#include "process/process_listing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

namespace kestravine {
namespace {

using ::testing::UnorderedElementsAreArray;

TEST(ProcessListing, ParsesTwoNumbersPerLineAndSkipsTheRest) {
  const std::string listing =
      "    1     0\n"
      "   10     1 extra fields\n"
      "\n"
      "   11\n"        // one number
      "   12   abc\n"  // not a number
      "   13   1x\n"
      "   14 99999999999\n"  // beyond 32 bits
      "\t15 1\n"             // tab is not a separator
      "   16    10\n"
      "   16    11\n"  // later line wins
      "+17 -1\n";
  auto parents = process_listing::parse(listing);
  const std::unordered_map<pid_t, pid_t> expected = {{1, 0}, {10, 1}, {16, 11}, {17, -1}};
  EXPECT_EQ(parents, expected);
}

TEST(ProcessListing, DescendantsWalkAtMostTwoHundredStepsAndEndCircles) {
  std::unordered_map<pid_t, pid_t> parents = {
      {100, 1},   {101, 100}, {102, 101}, {103, 100},  // a small tree under 100
      {200, 200},                                      // its own parent
      {300, 301}, {301, 300},                          // a circle without the root
  };
  EXPECT_THAT(process_listing::descendants(parents, 100),
              UnorderedElementsAreArray({101, 102, 103}));
  EXPECT_TRUE(process_listing::descendants(parents, 999).empty());

  // A chain 1000 <- 1001 <- ... : depth 200 is reached, depth 201 is not.
  std::unordered_map<pid_t, pid_t> chain;
  for (pid_t p = 1001; p <= 1201; ++p) chain[p] = p - 1;
  auto found = process_listing::descendants(chain, 1000);
  EXPECT_EQ(found.size(), 200u);
  EXPECT_EQ(std::count(found.begin(), found.end(), 1200), 1);
  EXPECT_EQ(std::count(found.begin(), found.end(), 1201), 0);

  // The root listed as the child of its own descendant is still never in the result.
  std::unordered_map<pid_t, pid_t> loop = {{5, 6}, {6, 5}};
  EXPECT_THAT(process_listing::descendants(loop, 5), UnorderedElementsAreArray({6}));
}

TEST(ProcessListing, ReadsTheRealListing) {
  auto parents = process_listing::parse(process_listing::read());
  ASSERT_TRUE(parents.count(getpid()));
  EXPECT_EQ(parents.at(getpid()), getppid());
}

}  // namespace
}  // namespace kestravine
