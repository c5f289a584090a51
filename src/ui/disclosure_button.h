#pragma once

#include <QAbstractButton>

namespace kestravine {

// A disclosure toggle: a small triangle beside a label, pointing right while collapsed and
// down while expanded, drawn flat in both states (never as a pressed button). Checkable: checked
// means expanded. Screen readers see it as a button that is expandable, expanded or collapsed.
//
// Threading: GUI thread only.
class DisclosureButton final : public QAbstractButton {
  Q_OBJECT

 public:
  explicit DisclosureButton(const QString& text, QWidget* parent = nullptr);

  QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
};

}  // namespace kestravine
