#include "ui/log_view.h"

#include <QAccessible>
#include <QClipboard>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMenu>
#include <QPaintEvent>
#include <QPainter>
#include <QWheelEvent>
#include <cmath>

#include "ui/focus_ring.h"
#include "ui/row_estimate.h"
#include "ui/style.h"

namespace kestravine {

namespace {

constexpr int kMargin = 8;
constexpr int kGap = 2;
constexpr int kEndMarkerHeight = 1;
constexpr double kCornerRadius = 8;
constexpr double kFontSize = 11;
constexpr int kFollowMilliseconds = 150;
constexpr int kIndicatorWidth = 6;

QTextOption wrapping() {
  QTextOption option(Qt::AlignLeft | Qt::AlignTop);
  option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  return option;
}

QString rowText(const std::string& line) {
  return QString::fromUtf8(line.data(), static_cast<qsizetype>(line.size()));
}

}  // namespace

struct LogView::Row {
  std::uint64_t number = 0;
  std::string text;
  int top = 0;  // from the content's top
  int height = 0;
  bool exact = false;                   // height from a real layout, not an estimate
  std::unique_ptr<QTextLayout> layout;  // kept only while the row is in or near view
};

LogView::LogView(QWidget* parent)
    : QWidget(parent),
      scrollBar_(new QScrollBar(Qt::Vertical, this)),
      follow_(new QVariantAnimation(this)) {
  setFont(style::monospaceFont(kFontSize));
  setAttribute(Qt::WA_OpaquePaintEvent, false);
  // Tab only: a click (the second of a double click on a button that the log replaced) must not
  // leave the focus here when an arrangement appears.
  setFocusPolicy(Qt::TabFocus);
  scrollBar_->hide();
  scrollBar_->setFocusPolicy(Qt::NoFocus);
  applyPalette();
  connect(scrollBar_, &QScrollBar::valueChanged, this, [this](int value) {
    if (layOutRowsInView(value)) relayout(isFollowing());
    update();
  });
  follow_->setDuration(kFollowMilliseconds);
  follow_->setEasingCurve(QEasingCurve::Linear);
  connect(follow_, &QVariantAnimation::valueChanged, this,
          [this](const QVariant& value) { scrollBar_->setValue(value.toInt()); });
}

LogView::~LogView() = default;

int LogView::rowWidth() const {
  return std::max(1, width() - 2 * kMargin);
}

QTextLayout& LogView::layoutOf(Row& row) {
  if (!row.layout) {
    row.layout = std::make_unique<QTextLayout>(rowText(row.text), font());
    row.layout->setTextOption(wrapping());
    row.layout->beginLayout();
    double y = 0;
    for (QTextLine line = row.layout->createLine(); line.isValid();
         line = row.layout->createLine()) {
      line.setLineWidth(rowWidth());
      line.setPosition(QPointF(0, y));
      y += line.height();
    }
    row.layout->endLayout();
    if (!row.exact) ++exactLayouts_;
    row.height = static_cast<int>(std::ceil(y));
    row.exact = true;
  }
  return *row.layout;
}

bool LogView::layOutRowsInView(int offset) {
  const int top = offset - kMargin;
  const int bottom = offset + height();
  bool changed = false;
  int y = kMargin;
  for (auto& row : rows_) {
    row.top = y;
    const bool near = y + row.height >= top - height() && y <= bottom + height();
    if (y + row.height >= top && y <= bottom) {
      const int before = row.height;
      layoutOf(row);
      changed = changed || row.height != before;
    } else if (!near) {
      row.layout.reset();  // its height stays; the glyphs go
    }
    y += row.height + kGap;
  }
  contentHeight_ = y + kEndMarkerHeight + kMargin;  // y: the end marker's top
  return changed;
}

int LogView::endPosition() const {
  // The end marker's bottom edge on the box's bottom edge; the bottom margin stays below.
  return std::max(0, contentHeight_ - kMargin - height());
}

void LogView::setLines(const std::deque<std::string>& lines, std::uint64_t firstNumber) {
  const std::uint64_t end = firstNumber + lines.size();
  // What screen readers are told: the text that left the front, and where new text begins.
  const bool announce = QAccessible::isActive();
  QString removed;
  auto drop = [&](bool front) {
    if (announce) removed += rowText(front ? rows_.front().text : rows_.back().text) + '\n';
    front ? rows_.pop_front() : rows_.pop_back();
  };
  // Keep the rows whose numbers are still in the list; they keep their heights.
  while (!rows_.empty() && rows_.front().number < firstNumber) drop(true);
  if (!rows_.empty() && (rows_.back().number >= end || rows_.front().number != firstNumber ||
                         layoutWidth_ != rowWidth())) {
    // Rows are replaced, not only added: told as the whole text going.
    if (announce) removed = allText();
    rows_.clear();
  }
  layoutWidth_ = rowWidth();
  const std::size_t firstAdded = rows_.size();
  for (std::size_t i = rows_.size(); i < lines.size(); ++i) {
    Row row;
    row.number = firstNumber + i;
    row.text = lines[i];
    row.height = estimatedRowHeight(row.text, font(), rowWidth());
    rows_.push_back(std::move(row));
  }

  const bool countChanged = seenCount_.has_value() && *seenCount_ != lines.size();
  seenCount_ = lines.size();
  relayout(countChanged || isFollowing());
  if (countChanged) followEnd();
  update();
  if (announce) announceChange(removed, firstAdded);
}

void LogView::announceChange(const QString& removed, std::size_t firstAdded) {
  if (!removed.isEmpty()) {
    QAccessibleTextRemoveEvent event(this, 0, removed);
    QAccessible::updateAccessibility(&event);
  }
  if (firstAdded == rows_.size()) return;
  QString added;
  for (std::size_t i = firstAdded; i < rows_.size(); ++i) {
    if (i > 0) added += '\n';
    added += rowText(rows_[i].text);
  }
  QAccessibleTextInsertEvent event(this, textLength() - static_cast<int>(added.size()), added);
  QAccessible::updateAccessibility(&event);
}

void LogView::relayout(bool keepFollowing) {
  // Heights of rows coming into view may differ from their estimates; settle them until the
  // rows in view are exact (a few rounds at most: each round only makes more rows exact).
  for (int round = 0; round < 4; ++round) {
    const int offset = keepFollowing ? endPosition() : scrollBar_->value();
    if (!layOutRowsInView(offset)) break;
  }
  const int before = scrollBar_->value();
  const QSignalBlocker blocker(scrollBar_);
  scrollBar_->setRange(0, std::max(0, contentHeight_ - height()));
  // What is in view now is laid out too: the rows moved, a scroll to the end may still be on its
  // way, and a shorter list may have pulled the position back.
  if ((keepFollowing || scrollBar_->value() != before) && layOutRowsInView(scrollBar_->value())) {
    scrollBar_->setRange(0, std::max(0, contentHeight_ - height()));
  }
  scrollBar_->setPageStep(height());
  scrollBar_->setSingleStep(QFontMetrics(font()).height());
  scrollBar_->setGeometry(width() - kMargin + (kMargin - kIndicatorWidth) / 2, 4, kIndicatorWidth,
                          std::max(0, height() - 8));
  scrollBar_->setVisible(scrollBar_->maximum() > 0);
  if (keepFollowing && isFollowing()) follow_->setEndValue(endPosition());
}

bool LogView::isFollowing() const {
  return follow_->state() == QAbstractAnimation::Running;
}

void LogView::followEnd() {
  follow_->stop();
  follow_->setStartValue(scrollBar_->value());
  follow_->setEndValue(endPosition());
  follow_->start();
}

void LogView::showEnd() {
  // Also once the layout has given the box its real width, which changes every row's height.
  pinnedToEnd_ = true;
  follow_->stop();
  relayout(true);
  scrollBar_->setValue(endPosition());
}

QString LogView::allText() const {
  QString text;
  for (const auto& row : rows_) {
    if (!text.isEmpty()) text += '\n';
    text += rowText(row.text);
  }
  return text;
}

int LogView::textLength() const {
  return static_cast<int>(allText().size());
}

void LogView::copyAll() const {
  QGuiApplication::clipboard()->setText(allText() + '\n');
}

void LogView::applyPalette() {
  // A slim indicator over the right margin, in a weak shade of the text colour, rather than the
  // style's full scroll bar with arrows and a groove.
  QColor handle = style::primary(palette());
  handle.setAlphaF(0.4f);
  scrollBar_->setStyleSheet(
      QStringLiteral("QScrollBar:vertical { background: transparent; width: %5px; margin: 0; }"
                     "QScrollBar::handle:vertical { background: rgba(%1, %2, %3, %4);"
                     " border-radius: 3px; min-height: 24px; }"
                     "QScrollBar::add-line, QScrollBar::sub-line { height: 0; }"
                     "QScrollBar::add-page, QScrollBar::sub-page { background: transparent; }")
          .arg(handle.red())
          .arg(handle.green())
          .arg(handle.blue())
          .arg(handle.alphaF())
          .arg(kIndicatorWidth));
}

bool LogView::event(QEvent* event) {
  if (event->type() == QEvent::PaletteChange) applyPalette();
  return QWidget::event(event);
}

void LogView::resizeEvent(QResizeEvent*) {
  if (layoutWidth_ != rowWidth()) {
    // New width: every height is worked out anew (estimated, then exact when in view).
    layoutWidth_ = rowWidth();
    for (auto& row : rows_) {
      row.layout.reset();
      row.exact = false;
      row.height = estimatedRowHeight(row.text, font(), rowWidth());
    }
  }
  relayout(isFollowing() || pinnedToEnd_);
  if (pinnedToEnd_) scrollBar_->setValue(endPosition());
}

void LogView::wheelEvent(QWheelEvent* event) {
  if (!scrollBar_->isVisible()) return QWidget::wheelEvent(event);
  follow_->stop();
  pinnedToEnd_ = false;
  QCoreApplication::sendEvent(scrollBar_, event);
}

void LogView::keyPressEvent(QKeyEvent* event) {
  if (event->matches(QKeySequence::Copy)) return copyAll();
  static const std::pair<int, QAbstractSlider::SliderAction> kActions[] = {
      {Qt::Key_Up, QAbstractSlider::SliderSingleStepSub},
      {Qt::Key_Down, QAbstractSlider::SliderSingleStepAdd},
      {Qt::Key_PageUp, QAbstractSlider::SliderPageStepSub},
      {Qt::Key_PageDown, QAbstractSlider::SliderPageStepAdd},
      {Qt::Key_Home, QAbstractSlider::SliderToMinimum},
      {Qt::Key_End, QAbstractSlider::SliderToMaximum},
  };
  for (const auto& [key, action] : kActions) {
    if (event->key() == key && event->modifiers() == Qt::NoModifier) {
      follow_->stop();
      pinnedToEnd_ = false;
      scrollBar_->triggerAction(action);
      return;
    }
  }
  QWidget::keyPressEvent(event);
}

void LogView::contextMenuEvent(QContextMenuEvent* event) {
  QMenu menu(this);
  menu.addAction(QCoreApplication::translate("LogView", "复制全部"), this, &LogView::copyAll);
  menu.exec(event->globalPos());
}

void LogView::paintEvent(QPaintEvent* event) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  QColor box = palette().color(QPalette::Base);
  box.setAlphaF(0.5f);
  const QPainterPath path = style::continuousRoundedRect(QRectF(rect()), kCornerRadius);
  painter.fillPath(path, box);

  painter.setClipPath(path);
  painter.setPen(rowColour());
  const int offset = scrollBar_->value();
  const QRect visible = event->rect();
  // Rows in view are laid out on every change and scroll, never here: painting only draws.
  for (const auto& row : rows_) {
    const int top = row.top - offset;
    if (top + row.height < visible.top()) continue;
    if (top > visible.bottom()) break;
    if (row.layout) row.layout->draw(&painter, QPointF(kMargin, top), {}, QRectF(visible));
  }
  painter.setClipping(false);
  if (hasFocus()) focus_ring::paint(painter, rect(), palette());
}

QColor LogView::rowColour() const {
  // The secondary level, readable on the box: the base colour half over the window's.
  const QColor box =
      style::blend(palette().color(QPalette::Base), 0.5, palette().color(QPalette::Window));
  return style::readable(style::primary(palette()), 0.6, box);
}

}  // namespace kestravine
