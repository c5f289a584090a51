#include "ui/accessibility.h"

#include <QAccessibleWidget>

#include "ui/disclosure_button.h"
#include "ui/log_view.h"

namespace kestravine::accessibility {

namespace {

class LogAccessible final : public QAccessibleWidget {
 public:
  explicit LogAccessible(LogView* log) : QAccessibleWidget(log, QAccessible::StaticText) {}
  QString text(QAccessible::Text t) const override {
    if (t == QAccessible::Name || t == QAccessible::Value) {
      return static_cast<LogView*>(widget())->accessibleText();
    }
    return QAccessibleWidget::text(t);
  }
};

class DisclosureAccessible final : public QAccessibleWidget {
 public:
  explicit DisclosureAccessible(DisclosureButton* button)
      : QAccessibleWidget(button, QAccessible::Button) {}
  QString text(QAccessible::Text t) const override {
    if (t == QAccessible::Name) return button()->text();
    return QAccessibleWidget::text(t);
  }
  QAccessible::State state() const override {
    QAccessible::State s = QAccessibleWidget::state();
    s.expandable = true;
    s.expanded = button()->isChecked();
    s.collapsed = !button()->isChecked();
    return s;
  }
  QStringList actionNames() const override { return {pressAction()}; }
  void doAction(const QString& name) override {
    if (name == pressAction()) button()->click();
  }

 private:
  DisclosureButton* button() const { return static_cast<DisclosureButton*>(widget()); }
};

QAccessibleInterface* factory(const QString& className, QObject* object) {
  if (className == QLatin1String(LogView::staticMetaObject.className())) {
    return new LogAccessible(static_cast<LogView*>(object));
  }
  if (className == QLatin1String(DisclosureButton::staticMetaObject.className())) {
    return new DisclosureAccessible(static_cast<DisclosureButton*>(object));
  }
  return nullptr;
}

}  // namespace

void install() {
  static const bool installed = [] {
    QAccessible::installFactory(factory);
    return true;
  }();
  (void)installed;
}

}  // namespace kestravine::accessibility
