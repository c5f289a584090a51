#pragma once

#include <QScrollBar>
#include <QString>
#include <QVariantAnimation>
#include <QWidget>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace kestravine {

// The output lines in a small rounded box, one wrapped row per line in a small monospaced font,
// following the end of the output: whenever the number of lines changes it scrolls to the end,
// animated over 0.15 s. The first display does not scroll. Rows are painted, not widgets, so 400
// lines cost one paint, and text is never interpreted as markup nor selectable.
//
// Threading: GUI thread only.
class LogView final : public QWidget {
  Q_OBJECT

 public:
  explicit LogView(QWidget* parent = nullptr);

  // The lines to show, oldest first, as they are at this evaluation of the owner's content.
  void setLines(const std::deque<std::string>& lines);

  // True while the scroll to the end is under way.
  bool isFollowing() const;
  QScrollBar* scrollBar() const { return scrollBar_; }

  // Rows longer than this many characters are shown cut, with an ellipsis: wrapping a
  // multi-megabyte line would freeze the window for nothing anyone could read.
  static constexpr qsizetype kMaxRowCharacters = 10000;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;

 private:
  void relayout();
  int rowWidth() const;
  void followEnd();

  std::vector<QString> rows_;
  std::vector<int> rowTops_;  // relative to the content's top
  int contentHeight_ = 0;
  std::optional<std::size_t> seenCount_;
  QScrollBar* scrollBar_;
  QVariantAnimation* follow_;
};

}  // namespace kestravine
