#include "ui/content_view.h"

#include <QAccessible>
#include <QCoreApplication>
#include <QHBoxLayout>
#include <QPushButton>
#include <QShortcut>
#include <QTextLayout>
#include <QVBoxLayout>

#include "model/machine_words.h"
#include "platform/platform.h"
#include "ui/accessibility.h"
#include "ui/disclosure_button.h"
#include "ui/log_view.h"
#include "ui/style.h"
#include "ui/widget_parts.h"

namespace kestravine {

using widget_parts::buttonRow;
using widget_parts::label;
using widget_parts::pushButton;
using Role = widget_parts::Role;

namespace {

constexpr int kWidth = 440;
constexpr int kHeight = 320;
constexpr int kMargin = 20;
constexpr int kGap = 12;
constexpr double kBodyFontSize = 13;
constexpr int kWorkingLogHeight = 150;
constexpr int kDetailsLogHeight = 130;
constexpr int kFrameMilliseconds = 16;
// Status text past this many bytes can never show within two lines; converting and measuring it
// all (a command may print a line of many megabytes) would only stall the window.
constexpr std::size_t kStatusBytes = 2048;

QString text(const char* key) {
  return QCoreApplication::translate("ContentView", key);
}

// The column of title and arrangement. It takes the height its content needs, at least the
// window's, and is never squeezed: content taller than the window is clipped at its bottom
// edge, with every element at its own size.
class Column final : public QWidget {
 public:
  using QWidget::QWidget;

 protected:
  bool event(QEvent* event) override {
    if (event->type() == QEvent::LayoutRequest && layout() != nullptr) {
      const int needed = layout()->hasHeightForWidth() ? layout()->totalHeightForWidth(kWidth)
                                                       : layout()->totalSizeHint().height();
      resize(kWidth, std::max(kHeight, needed));
    }
    return QWidget::event(event);
  }
};

}  // namespace

ContentView::ContentView(QWidget* parent)
    : QWidget(parent), model_(Model::create()), title_(nullptr) {
  accessibility::install();
  setFixedSize(kWidth, kHeight);
  // The body font for everything without a size of its own (the checking message, the
  // buttons): Chinese in one face, rather than the desktop's Latin face with fallbacks looked
  // up glyph by glyph.
  setFont(style::systemFont(kBodyFontSize));
  // Takes the focus whenever an arrangement appears, so that no button has it (Space and Return
  // then do nothing), while Tab still reaches every button.
  setFocusPolicy(Qt::ClickFocus);
  column_ = new Column(this);
  column_->setGeometry(0, 0, kWidth, kHeight);
  auto* layout = new QVBoxLayout(column_);
  layout->setContentsMargins(kMargin, kMargin, kMargin, kMargin);
  layout->setSpacing(kGap);
  // Anchored at the top: the space left over goes below the content.
  layout->addStretch(1);
  title_ = label({}, style::systemFont(19, QFont::DemiBold), Role::primary, true, palette());
  layout->insertWidget(0, title_);

  refreshTimer_.setSingleShot(true);
  connect(&refreshTimer_, &QTimer::timeout, this, [this] { refresh(); });
  sinceRefresh_.start();
  // Which arrangement and which buttons are shown changes at once, so that an input event
  // queued behind the one that changed the phase (the second click of a double click) meets
  // the new arrangement; lines and status, which may come by the thousand, wait for a frame.
  listenerId_ = model_->addListener([this](Model::Field field) {
    if (field == Model::Field::closed) {
      emit flowClosed();
    } else if (field == Model::Field::phase || field == Model::Field::canCancel ||
               field == Model::Field::offer) {
      refresh();
    } else {
      scheduleRefresh();
    }
  });
  refresh();
}

ContentView::~ContentView() {
  model_->removeListener(listenerId_);
}

void ContentView::closeFlow(std::function<void()> done) {
  model_->close(std::move(done));
}

QString ContentView::titleFor(const std::string& headline) {
  return headline.empty() ? QStringLiteral("Kestravine") : QString::fromStdString(headline);
}

QString ContentView::elided(const QString& content, const QFont& font, int width, int lines) {
  QTextLayout layout(content, font);
  QTextOption option;
  option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  layout.setTextOption(option);
  layout.beginLayout();
  QStringList shown;
  for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
    line.setLineWidth(width);
    if (shown.size() + 1 == lines) {
      // The last line allowed takes the rest of the text, cut with an ellipsis if too long.
      shown << QFontMetrics(font).elidedText(content.mid(line.textStart()), Qt::ElideRight, width);
      break;
    }
    shown << content.mid(line.textStart(), line.textLength()).trimmed();
  }
  layout.endLayout();
  return shown.join('\n');
}

void ContentView::scheduleRefresh() {
  if (refreshTimer_.isActive()) return;
  const auto wait = std::max<qint64>(0, kFrameMilliseconds - sinceRefresh_.elapsed());
  refreshTimer_.start(static_cast<int>(wait));
}

void ContentView::refresh() {
  sinceRefresh_.restart();
  const QString title = titleFor(model_->headline());
  title_->setText(title);
  // The view itself holds the focus while no control has it: a screen reader announces it by
  // this name when an arrangement appears.
  if (accessibleName() != title) setAccessibleName(title);
  if (arrangement_ == nullptr || shownPhase_ != model_->phase() || shownOffer_ != model_->offer())
    build(model_->phase());
  if (status_) {
    const std::string& status = model_->status();
    const QString shown = QString::fromUtf8(
        status.data(), static_cast<qsizetype>(std::min(status.size(), kStatusBytes)));
    status_->setText(elided(shown, status_->font(), kWidth - 2 * kMargin, 2));
  }
  if (failure_) failure_->setText(QString::fromStdString(model_->failure()));
  if (log_) log_->setLines(model_->lines(), firstLineNumber());
  if (cancelRow_) cancelRow_->setVisible(model_->canCancel());
}

void ContentView::build(Model::Phase phase) {
  if (arrangement_ != nullptr) {
    // This may run inside a click of a button of the old arrangement: hidden now, it takes no
    // further input, and it is deleted once that click has been handled.
    column_->layout()->removeWidget(arrangement_);
    arrangement_->hide();
    // Asked for from the event loop: Qt 6.4 never carries out a deleteLater() made before the
    // loop runs inside an event (the first arrangement is replaced in the window's show event),
    // and the hidden arrangement would stay in the tree screen readers walk.
    QMetaObject::invokeMethod(arrangement_, &QObject::deleteLater, Qt::QueuedConnection);
    status_ = failure_ = nullptr;
    log_ = nullptr;
    cancelRow_ = details_ = nullptr;
  }
  // Inside the column from the start, so what is measured while building has the view's font.
  arrangement_ = new QWidget(column_);
  auto* layout = new QVBoxLayout(arrangement_);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(kGap);
  shownPhase_ = phase;
  shownOffer_ = model_->offer();
  switch (phase) {
    case Model::Phase::checking:
      buildChecking();
      break;
    case Model::Phase::ready:
      if (shownOffer_ == Model::Offer::update) {
        buildUpdate();
      } else {
        buildReady();
      }
      break;
    case Model::Phase::working:
      buildWorking();
      break;
    case Model::Phase::failed:
      buildFailed();
      break;
  }
  static_cast<QVBoxLayout*>(column_->layout())->insertWidget(1, arrangement_);
  // Shown now rather than on the layout's queued show, so no frame lacks the arrangement.
  arrangement_->show();
  const bool hadFocus = hasFocus();
  setFocus(Qt::OtherFocusReason);
  if (hadFocus && QAccessible::isActive()) {
    // The focus stays here, so Qt reports no move: the new arrangement is announced anyway.
    QAccessibleEvent focus(this, QAccessible::Focus);
    QAccessible::updateAccessibility(&focus);
  }
}

void ContentView::buildChecking() {
  arrangement_->layout()->addWidget(
      label(text(machineTexts().checking.c_str()), font(), Role::secondary, false, palette()));
}

void ContentView::buildReady() {
  auto* layout = arrangement_->layout();
  layout->addWidget(label(text(machineTexts().description.c_str()), style::systemFont(12.5),
                          Role::secondary, true, palette()));
  auto* install = pushButton(text("安装并打开"));
  layout->addWidget(buttonRow(install, true));
  // The large control size, measured in the view's font that the button now has: measured in
  // the application's font, it came out a pixel off wherever the two fonts differ.
  install->setMinimumHeight(install->sizeHint().height() + 8);
  install->setMinimumWidth(install->sizeHint().width() + 16);
  connect(install, &QPushButton::clicked, this, [this] { model_->install(); });
  layout->addWidget(label(text("约 3—5 分钟，看网络。要一个 Claude 账号；不用另外填钥匙。"),
                          style::systemFont(11), Role::tertiary, false, palette()));
}

void ContentView::buildUpdate() {
  auto* layout = arrangement_->layout();
  // Both versions, so the user knows what changes.
  status_ = label({}, style::systemFont(12.5), Role::secondary, false, palette());
  status_->setFixedWidth(kWidth - 2 * kMargin);
  layout->addWidget(status_);
  auto* update = pushButton(text("更新并打开"));
  auto* row = buttonRow(update, true);
  layout->addWidget(row);
  update->setMinimumHeight(update->sizeHint().height() + 8);
  update->setMinimumWidth(update->sizeHint().width() + 16);
  connect(update, &QPushButton::clicked, this, [this] { model_->install(); });
  // The way back to what the user has, quieter than the update: a flat button beside it.
  auto* current = pushButton(text("先打开现在的版本"));
  current->setFlat(true);
  static_cast<QHBoxLayout*>(row->layout())->insertWidget(1, current, 0, Qt::AlignVCenter);
  connect(current, &QPushButton::clicked, this, [this] { model_->startInstalled(); });
  layout->addWidget(label(text("约 3—5 分钟，看网络。没更新完的话，现在的版本照样能用。"),
                          style::systemFont(11), Role::tertiary, false, palette()));
}

void ContentView::buildWorking() {
  auto* layout = arrangement_->layout();
  status_ = label({}, style::systemFont(12.5), Role::secondary, false, palette());
  status_->setFixedWidth(kWidth - 2 * kMargin);
  layout->addWidget(status_);
  log_ = new LogView;
  log_->setFixedHeight(kWorkingLogHeight);
  layout->addWidget(log_);
  auto* cancel = pushButton(text("取消"));
  connect(cancel, &QPushButton::clicked, this, [this] { model_->cancel(); });
  cancelRow_ = buttonRow(cancel, false);
  layout->addWidget(cancelRow_);
  // Escape is the cancel button while it is offered.
  auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), arrangement_);
  escape->setContext(Qt::WindowShortcut);
  connect(escape, &QShortcut::activated, cancel, [cancel] {
    if (cancel->isVisible()) cancel->click();
  });
}

void ContentView::buildFailed() {
  auto* layout = arrangement_->layout();
  failure_ = label({}, style::systemFont(12.5), Role::primary, true, palette());
  layout->addWidget(failure_);

  details_ = new QWidget;
  details_->setFont(style::systemFont(12));
  auto* detailsLayout = new QVBoxLayout(details_);
  detailsLayout->setContentsMargins(0, 0, 0, 0);
  detailsLayout->setSpacing(6);
  auto* toggle = new DisclosureButton(text("详情"));
  connect(toggle, &DisclosureButton::expandedChanged, this,
          [this](bool on) { setDetailsExpanded(on); });
  detailsLayout->addWidget(toggle, 0, Qt::AlignLeft);
  layout->addWidget(details_);

  auto* retry = pushButton(text("再试一次"));
  retry->setDefault(true);
  connect(retry, &QPushButton::clicked, this, [this] { model_->retry(); });
  layout->addWidget(buttonRow(retry, true));
  // The default button: Return (and Enter) trigger it, in this arrangement only.
  for (auto key : {Qt::Key_Return, Qt::Key_Enter}) {
    auto* shortcut = new QShortcut(QKeySequence(key), arrangement_);
    shortcut->setContext(Qt::WindowShortcut);
    connect(shortcut, &QShortcut::activated, retry, &QPushButton::click);
  }
}

void ContentView::setDetailsExpanded(bool expanded) {
  // Collapsing discards the box; expanding builds it afresh, starting at the top.
  delete log_;
  if (expanded) {
    log_ = new LogView;
    log_->setFixedHeight(kDetailsLogHeight);
    details_->layout()->addWidget(log_);
    log_->show();
  }
  refresh();
  // The details open on their last line: a failure's cause is usually there.
  if (log_) log_->showEnd();
}

std::uint64_t ContentView::firstLineNumber() const {
  return model_->linesAppended() - model_->lines().size();
}

void ContentView::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange || event->type() == QEvent::StyleChange) {
    // Light to dark and back: every text takes its role's colour from the new palette.
    for (auto* l : findChildren<QLabel*>()) widget_parts::recolour(l, palette());
  }
}

void ContentView::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (appeared_) return;
  appeared_ = true;
  window()->raise();
  window()->activateWindow();
  model_->check();
  model_->autostart();
}

}  // namespace kestravine
