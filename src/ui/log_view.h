#pragma once

#include <QScrollBar>
#include <QString>
#include <QTextLayout>
#include <QVariantAnimation>
#include <QWidget>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace kestravine {

// The output lines in a small rounded box, one wrapped row per line in a small monospaced font,
// following the end of the output: whenever the number of lines changes it scrolls, animated
// over 0.15 s, until the end marker's bottom edge meets the bottom edge of the box. The first
// display does not scroll, unless the owner asks it to show the end. Rows are painted, not
// widgets; text is never markup nor selectable with the mouse. The box takes the keyboard focus
// with Tab: the arrow, page, Home and End keys scroll it, and Ctrl+C or the context
// menu's "复制全部" copy every line as plain text, one per line. Screen readers read the whole
// text through a text interface and are told of lines that come and go.
//
// The work of a frame follows what changed and what is visible: a row's height is worked out
// once per text and width and kept while the row stays (rows are known by their line number, so
// a text that moves up by one keeps its height); a row is laid out exactly only when it comes
// into view, and until then a long one's height is estimated from its length in the monospaced
// font; only visible rows are painted. The scroll indicator lies over the right margin, so its
// appearing changes no row's width.
//
// Threading: GUI thread only.
class LogView final : public QWidget {
  Q_OBJECT

 public:
  explicit LogView(QWidget* parent = nullptr);
  ~LogView() override;

  // The lines to show, oldest first, as they are at this evaluation of the owner's content.
  // `firstNumber` numbers lines[0] in the owner's sequence of all lines: one number always
  // stands for one text, so a row seen before keeps its layout.
  void setLines(const std::deque<std::string>& lines, std::uint64_t firstNumber);

  // Jumps to the end at once, without the animation.
  void showEnd();
  // True while the scroll to the end is under way.
  bool isFollowing() const;
  QScrollBar* scrollBar() const { return scrollBar_; }
  // The scroll position at which the end marker's bottom edge is the box's bottom edge.
  int endPosition() const;
  // Every line, one per line: what is copied, and what screen readers read.
  QString allText() const;
  // Puts allText() on the clipboard.
  void copyAll() const;
  // The colour rows are painted in: the secondary level, readable on the box.
  QColor rowColour() const;
  // How many rows have been laid out exactly, since this view was made (for tests).
  std::size_t exactLayouts() const { return exactLayouts_; }

 protected:
  bool event(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;

 private:
  struct Row;

  int rowWidth() const;
  QTextLayout& layoutOf(Row& row);
  // Lays out exactly the rows that a scroll position `offset` shows; true if a height changed.
  bool layOutRowsInView(int offset);
  // Settles the rows in view and sets the scroll range and the indicator; with `keepFollowing`,
  // at the end position, where a running scroll to the end is headed.
  void relayout(bool keepFollowing);
  void followEnd();
  void applyPalette();
  // Tells screen readers that `removed` rows left the front and rows from `firstAdded` on came.
  void announceChange(const QString& removed, std::size_t firstAdded);
  int textLength() const;

  std::deque<Row> rows_;
  std::optional<std::size_t> seenCount_;
  int contentHeight_ = 0;
  int layoutWidth_ = 0;       // the row width the heights were worked out for
  bool pinnedToEnd_ = false;  // showEnd() holds until the user scrolls
  std::size_t exactLayouts_ = 0;
  QScrollBar* scrollBar_;
  QVariantAnimation* follow_;
};

}  // namespace kestravine
