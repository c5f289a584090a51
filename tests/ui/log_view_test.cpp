#include "ui/log_view.h"

#include <gtest/gtest.h>

#include "support/ui_wait.h"

namespace kestravine {
namespace {

using testing::waitFor;

std::deque<std::string> numbered(int count, const std::string& prefix = "line ") {
  std::deque<std::string> lines;
  for (int i = 1; i <= count; ++i) lines.push_back(prefix + std::to_string(i));
  return lines;
}

class LogViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    view.resize(400, 150);
    view.show();
  }
  LogView view;
};

TEST_F(LogViewTest, FirstDisplayStaysAtTheTop) {
  view.setLines(numbered(200));
  EXPECT_FALSE(view.isFollowing());
  EXPECT_GT(view.scrollBar()->maximum(), 0);
  EXPECT_EQ(view.scrollBar()->value(), 0);
}

TEST_F(LogViewTest, FollowsTheEndWhenTheCountChangesEitherWay) {
  view.setLines(numbered(10));
  view.setLines(numbered(11));
  EXPECT_TRUE(view.isFollowing());
  ASSERT_TRUE(waitFor([&] { return !view.isFollowing(); }));
  EXPECT_EQ(view.scrollBar()->value(), view.scrollBar()->maximum());

  view.scrollBar()->setValue(0);
  view.setLines(numbered(11, "other "));  // same count, new texts: no scroll
  EXPECT_FALSE(view.isFollowing());
  EXPECT_EQ(view.scrollBar()->value(), 0);

  view.setLines(numbered(30));
  view.scrollBar()->setValue(0);
  view.setLines(numbered(12));  // fewer lines scroll to the end as well
  EXPECT_TRUE(view.isFollowing());
}

TEST_F(LogViewTest, EmptyListShowsNoScrollBar) {
  view.setLines({});
  EXPECT_FALSE(view.scrollBar()->isVisible());
  EXPECT_EQ(view.scrollBar()->maximum(), 0);
}

TEST_F(LogViewTest, LongLinesWrapIntoTallerRows) {
  view.setLines(numbered(8, "short "));
  const int shortRange = view.scrollBar()->maximum();
  auto lines = numbered(8, "short ");
  lines.back() = std::string(2000, 'x');
  view.setLines(lines);
  EXPECT_GT(view.scrollBar()->maximum(), shortRange + 200);
}

TEST_F(LogViewTest, HugeLineIsCutForDisplay) {
  std::deque<std::string> lines{std::string(20u << 20, 'y')};
  view.setLines(lines);  // must not freeze on a 20 MB row
  view.repaint();
  EXPECT_GT(view.scrollBar()->maximum(), 0);
}

}  // namespace
}  // namespace kestravine
