#include "ui/log_view.h"

#include <gtest/gtest.h>

#include <QFontMetrics>
#include <QVariantAnimation>
#include <cmath>

#include "support/ui_wait.h"

namespace kestravine::testing {
namespace {

std::deque<std::string> numbered(int count, const std::string& prefix = "line ") {
  std::deque<std::string> lines;
  for (int i = 1; i <= count; ++i) lines.push_back(prefix + std::to_string(i));
  return lines;
}

// A log 400 wide and 150 high; lines are numbered in the owner's sequence from `first`, as the
// content view passes them.
class LogViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    view.resize(400, 150);
    view.show();
  }
  int position() const { return view.scrollBar()->value(); }
  LogView view;
};

// The first display stays at the top; from then on a change of the number of lines, either way,
// scrolls to the end: the end marker's bottom edge on the box's, the 8 of margin out of view.
TEST_F(LogViewTest, FollowsTheEndWhenTheCountChanges) {
  view.setLines(numbered(200), 0);
  EXPECT_FALSE(view.isFollowing());
  EXPECT_GT(view.scrollBar()->maximum(), 0);
  EXPECT_EQ(position(), 0);

  view.setLines(numbered(201), 0);
  EXPECT_TRUE(view.isFollowing());
  ASSERT_TRUE(waitFor([&] { return !view.isFollowing(); }));
  EXPECT_EQ(position(), view.endPosition());
  EXPECT_EQ(view.endPosition(), view.scrollBar()->maximum() - 8);

  view.scrollBar()->setValue(0);
  view.setLines(numbered(201, "other "), 201);  // same count, new texts: no scroll
  EXPECT_FALSE(view.isFollowing());
  EXPECT_EQ(position(), 0);
  view.setLines(numbered(12), 500);
  EXPECT_TRUE(view.isFollowing());
}

// The follow is a linear scroll of 0.15 s, and it ends at the end as it is once the rows that
// came into view on the way have their exact heights, not where it was first headed.
TEST_F(LogViewTest, TheFollowTakes150MillisecondsAndEndsWhereTheRowsSettle) {
  auto* follow = view.findChild<QVariantAnimation*>();
  ASSERT_NE(follow, nullptr);
  EXPECT_EQ(follow->duration(), 150);
  EXPECT_EQ(follow->easingCurve().type(), QEasingCurve::Linear);
  // Words that wrap early: a row's height estimated from its length falls short.
  std::deque<std::string> lines(1, "first");
  view.setLines(lines, 0);
  std::string words;
  for (char c : std::string("abcde")) words += std::string(35, c) + " ";
  for (int i = 0; i < 300; ++i) lines.push_back(words);
  view.setLines(lines, 0);
  ASSERT_TRUE(view.isFollowing());
  const int firstHeadedTo = follow->endValue().toInt();
  ASSERT_TRUE(waitFor([&] { return !view.isFollowing(); }));
  EXPECT_NE(view.endPosition(), firstHeadedTo);  // the rows did settle on the way
  EXPECT_EQ(position(), view.endPosition());
}

// Rows are laid out exactly only in view, and a row that moves up keeps its layout.
TEST_F(LogViewTest, LaysOutOnlyNewRowsInView) {
  view.setLines(std::deque<std::string>(400, std::string(16384, 'x')), 0);
  const std::size_t longRows = view.exactLayouts();
  EXPECT_LT(longRows, 5u);  // a row or two of 16,384 characters fill the box
  std::deque<std::string> rows = numbered(400, "row ");
  view.setLines(rows, 1000);
  const std::size_t shortRows = view.exactLayouts();
  EXPECT_GT(shortRows - longRows, 5u);
  rows.pop_front();  // one line more, the oldest gone: the texts move up by one
  rows.push_back("row 401");
  view.setLines(rows, 1001);
  EXPECT_EQ(view.exactLayouts(), shortRows + 1);  // only the row that came into view
}

// Whole lines wrap, up to the cap; rows out of view are estimated close to their exact height.
TEST_F(LogViewTest, WholeLinesWrapUpToTheCap) {
  view.setLines(numbered(30, "short "), 0);
  const int shortRange = view.scrollBar()->maximum();
  const int lineHeight = QFontMetrics(view.font()).height();
  for (std::size_t length : {2000u, 16384u}) {
    auto lines = numbered(30, "short ");
    lines.back() = std::string(length, 'x') + "\u2026";
    view.setLines(lines, length);
    const double perLine =
        std::floor((400 - 16) / QFontMetricsF(view.font()).horizontalAdvance('x'));
    const int extra = static_cast<int>(std::ceil((length + 1) / perLine)) - 1;
    const int estimated = view.scrollBar()->maximum() - shortRange;
    EXPECT_NEAR(estimated, extra * lineHeight, lineHeight) << length;
    view.scrollBar()->setValue(view.endPosition());  // in view: laid out exactly
    EXPECT_NEAR(view.scrollBar()->maximum() - shortRange, estimated, lineHeight) << length;
  }
}

}  // namespace
}  // namespace kestravine::testing
