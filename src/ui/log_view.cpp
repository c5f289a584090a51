#include "ui/log_view.h"

#include <QCoreApplication>
#include <QPainter>
#include <QPainterPath>
#include <QTextLayout>
#include <QWheelEvent>

#include "ui/style.h"

namespace kestravine {

namespace {

constexpr int kMargin = 8;
constexpr int kGap = 2;
constexpr int kEndMarkerHeight = 1;
constexpr double kCornerRadius = 8;
constexpr double kFontSize = 11;
constexpr int kFollowMilliseconds = 150;

QTextOption wrapping() {
  QTextOption option(Qt::AlignLeft | Qt::AlignTop);
  option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  return option;
}

int wrappedHeight(const QString& text, const QFont& font, int width) {
  const QFontMetrics metrics(font);
  if (metrics.horizontalAdvance(text) <= width) return metrics.height();
  QTextLayout layout(text, font);
  layout.setTextOption(wrapping());
  layout.beginLayout();
  int lines = 0;
  for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
    line.setLineWidth(width);
    ++lines;
  }
  layout.endLayout();
  return lines * metrics.height();
}

QString rowText(const std::string& line) {
  // A character takes at most four bytes: this many always hold more characters than are shown.
  const std::size_t limit = static_cast<std::size_t>(LogView::kMaxRowCharacters) * 4;
  QString text =
      QString::fromUtf8(line.data(), static_cast<qsizetype>(std::min(line.size(), limit)));
  if (text.size() <= LogView::kMaxRowCharacters) return text;
  return text.left(LogView::kMaxRowCharacters) + QChar(0x2026);
}

}  // namespace

LogView::LogView(QWidget* parent)
    : QWidget(parent),
      scrollBar_(new QScrollBar(Qt::Vertical, this)),
      follow_(new QVariantAnimation(this)) {
  setFont(style::monospaceFont(kFontSize));
  setAttribute(Qt::WA_OpaquePaintEvent, false);
  scrollBar_->hide();
  // A slim indicator inside the rounded box, in a weak shade of the text colour, rather than the
  // style's full scroll bar with arrows and a groove.
  const QColor handle = style::tertiary(palette());
  scrollBar_->setStyleSheet(
      QStringLiteral("QScrollBar:vertical { background: transparent; width: 8px; margin: 0; }"
                     "QScrollBar::handle:vertical { background: rgba(%1, %2, %3, %4);"
                     " border-radius: 3px; min-height: 24px; margin: 1px; }"
                     "QScrollBar::add-line, QScrollBar::sub-line { height: 0; }"
                     "QScrollBar::add-page, QScrollBar::sub-page { background: transparent; }")
          .arg(handle.red())
          .arg(handle.green())
          .arg(handle.blue())
          .arg(handle.alphaF()));
  connect(scrollBar_, &QScrollBar::valueChanged, this, [this] { update(); });
  follow_->setDuration(kFollowMilliseconds);
  follow_->setEasingCurve(QEasingCurve::Linear);
  connect(follow_, &QVariantAnimation::valueChanged, this,
          [this](const QVariant& value) { scrollBar_->setValue(value.toInt()); });
}

void LogView::setLines(const std::deque<std::string>& lines) {
  rows_.clear();
  rows_.reserve(lines.size());
  for (const auto& line : lines) rows_.push_back(rowText(line));
  relayout();
  update();
  const bool countChanged = seenCount_.has_value() && *seenCount_ != lines.size();
  seenCount_ = lines.size();
  if (countChanged) followEnd();
}

bool LogView::isFollowing() const {
  return follow_->state() == QAbstractAnimation::Running;
}

void LogView::followEnd() {
  follow_->stop();
  follow_->setStartValue(scrollBar_->value());
  follow_->setEndValue(scrollBar_->maximum());
  follow_->start();
}

int LogView::rowWidth() const {
  const int bar = scrollBar_->isVisible() ? scrollBar_->sizeHint().width() : 0;
  return std::max(1, width() - 2 * kMargin - bar);
}

void LogView::relayout() {
  // Lay out without a scroll bar first; if the rows then do not fit, with one.
  for (bool withBar : {false, true}) {
    scrollBar_->setVisible(withBar);
    const int width = rowWidth();
    rowTops_.clear();
    int y = kMargin;
    for (const auto& row : rows_) {
      rowTops_.push_back(y);
      y += wrappedHeight(row, font(), width) + kGap;
    }
    contentHeight_ = y + kEndMarkerHeight + kMargin;
    if (contentHeight_ <= height()) break;
  }
  const int bar = scrollBar_->sizeHint().width();
  scrollBar_->setGeometry(width() - bar - 2, 4, bar, std::max(0, height() - 8));
  scrollBar_->setRange(0, std::max(0, contentHeight_ - height()));
  scrollBar_->setPageStep(height());
  scrollBar_->setSingleStep(QFontMetrics(font()).height());
}

void LogView::resizeEvent(QResizeEvent*) {
  relayout();
}

void LogView::wheelEvent(QWheelEvent* event) {
  if (!scrollBar_->isVisible()) return QWidget::wheelEvent(event);
  follow_->stop();
  QCoreApplication::sendEvent(scrollBar_, event);
}

void LogView::paintEvent(QPaintEvent* event) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  QColor box = palette().color(QPalette::Base);
  box.setAlphaF(0.5f);
  QPainterPath path;
  path.addRoundedRect(QRectF(rect()), kCornerRadius, kCornerRadius);
  painter.fillPath(path, box);

  painter.setClipPath(path);
  painter.setPen(style::secondary(palette()));
  const int offset = scrollBar_->value();
  const int width = rowWidth();
  const QRect visible = event->rect();
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    const int top = rowTops_[i] - offset;
    const int bottom = (i + 1 < rows_.size() ? rowTops_[i + 1] : contentHeight_) - offset;
    if (bottom < visible.top()) continue;
    if (top > visible.bottom()) break;
    painter.drawText(QRectF(kMargin, top, width, bottom - top), rows_[i], wrapping());
  }
}

}  // namespace kestravine
