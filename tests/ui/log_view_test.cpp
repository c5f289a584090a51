#include "ui/log_view.h"

#include <gtest/gtest.h>

#include <QFontMetrics>
#include <cmath>

#include "support/ui_wait.h"

namespace kestravine {
namespace {

using testing::waitFor;

std::deque<std::string> numbered(int count, const std::string& prefix = "line ", int from = 1) {
  std::deque<std::string> lines;
  for (int i = from; i < from + count; ++i) lines.push_back(prefix + std::to_string(i));
  return lines;
}

class LogViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    view.resize(400, 150);
    view.show();
  }
  // Lines numbered from `first` in the owner's sequence, as the content view passes them.
  void show(const std::deque<std::string>& lines, std::uint64_t first = 0) {
    view.setLines(lines, first);
  }
  int lineHeight() const { return QFontMetrics(view.font()).height(); }
  LogView view;
};

TEST_F(LogViewTest, FirstDisplayStaysAtTheTop) {
  show(numbered(200));
  EXPECT_FALSE(view.isFollowing());
  EXPECT_GT(view.scrollBar()->maximum(), 0);
  EXPECT_EQ(view.scrollBar()->value(), 0);
}

TEST_F(LogViewTest, FollowsTheEndWhenTheCountChangesEitherWay) {
  show(numbered(10));
  show(numbered(11));
  EXPECT_TRUE(view.isFollowing());
  ASSERT_TRUE(waitFor([&] { return !view.isFollowing(); }));
  // The end marker's bottom edge on the box's bottom edge: the 8 of margin stay out of view.
  EXPECT_EQ(view.scrollBar()->value(), view.endPosition());
  EXPECT_EQ(view.endPosition(), view.scrollBar()->maximum() - 8);

  view.scrollBar()->setValue(0);
  show(numbered(11, "other "), 11);  // same count, new texts: no scroll
  EXPECT_FALSE(view.isFollowing());
  EXPECT_EQ(view.scrollBar()->value(), 0);

  show(numbered(30), 100);
  view.scrollBar()->setValue(0);
  show(numbered(12), 200);  // fewer lines scroll to the end as well
  EXPECT_TRUE(view.isFollowing());
}

// A frame's work follows what changed and what is visible: rows are laid out exactly only in
// view, and a row that moves up keeps its layout.
TEST_F(LogViewTest, LaysOutOnlyNewRowsInView) {
  std::deque<std::string> lines(400, std::string(16384, 'x'));
  show(lines, 0);
  EXPECT_LT(view.exactLayouts(), 5u);  // 150 high: a row or two of 16,384 characters
  LogView shortRows;
  shortRows.resize(400, 150);
  shortRows.show();
  std::deque<std::string> numberedRows = numbered(400, "row ");
  shortRows.setLines(numberedRows, 0);
  const std::size_t first = shortRows.exactLayouts();
  EXPECT_GT(first, 5u);
  numberedRows.pop_front();  // one line more, the oldest gone: the texts move up by one
  numberedRows.push_back("row 401");
  shortRows.setLines(numberedRows, 1);
  EXPECT_EQ(shortRows.exactLayouts(), first + 1);  // only the row that came into view
}

TEST_F(LogViewTest, WholeLinesWrapUpToTheCap) {
  show(numbered(8, "short "));
  const int shortRange = view.scrollBar()->maximum();
  for (std::size_t length : {2000u, 16384u}) {
    auto lines = numbered(8, "short ");
    lines.back() = std::string(length, 'x') + "\u2026";
    show(lines, length);
    const double perLine =
        std::floor((400 - 16) / QFontMetricsF(view.font()).horizontalAdvance('x'));
    const int extra = static_cast<int>(std::ceil((length + 1) / perLine)) - 1;
    const int estimated = view.scrollBar()->maximum() - shortRange;
    EXPECT_NEAR(estimated, extra * lineHeight(), lineHeight()) << length;
    view.scrollBar()->setValue(view.endPosition());  // in view: laid out exactly
    EXPECT_NEAR(view.scrollBar()->maximum() - shortRange, estimated, lineHeight()) << length;
  }
}

}  // namespace
}  // namespace kestravine
