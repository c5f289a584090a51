#pragma once

#include <QAbstractButton>

namespace kestravine {

// A disclosure toggle: a small triangle beside a label, pointing right while collapsed and
// down while expanded, drawn flat in both states (never as a pressed button). A click, Space,
// Return or Enter toggles it. Not checkable: screen readers are told that it expands and
// collapses, not that it is checked.
//
// Threading: GUI thread only.
class DisclosureButton final : public QAbstractButton {
  Q_OBJECT

 public:
  explicit DisclosureButton(const QString& text, QWidget* parent = nullptr);

  bool isExpanded() const { return expanded_; }
  QSize sizeHint() const override;

 signals:
  void expandedChanged(bool expanded);

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  bool expanded_ = false;
};

}  // namespace kestravine
