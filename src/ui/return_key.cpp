#include "ui/return_key.h"

#include <QAbstractButton>
#include <QKeyEvent>

namespace kestravine::return_key {

namespace {

class Filter final : public QObject {
 public:
  using QObject::QObject;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    const auto type = event->type();
    if (type != QEvent::ShortcutOverride && type != QEvent::KeyPress) return false;
    const auto* key = static_cast<QKeyEvent*>(event);
    const bool returnKey = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
    if (!returnKey || (key->modifiers() & ~Qt::KeypadModifier) != Qt::NoModifier) return false;
    // Claimed at the override stage, so a window shortcut for Return does not take it first.
    event->accept();
    if (type == QEvent::KeyPress && !key->isAutoRepeat())
      static_cast<QAbstractButton*>(watched)->click();
    return true;
  }
};

}  // namespace

void pressesButton(QAbstractButton* button) {
  button->installEventFilter(new Filter(button));
}

}  // namespace kestravine::return_key
