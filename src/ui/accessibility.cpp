#include "ui/accessibility.h"

#include <QAccessibleWidget>
#include <QCoreApplication>
#ifdef KESTRAVINE_ATSPI
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#endif
#include <utility>

#include "ui/disclosure_button.h"
#include "ui/log_view.h"

namespace kestravine::accessibility {

namespace {

// The log as a read-only text of many lines: a screen reader reads all of it, line by line,
// and hears the lines that come.
class LogAccessible final : public QAccessibleWidget, public QAccessibleTextInterface {
 public:
  explicit LogAccessible(LogView* log) : QAccessibleWidget(log, QAccessible::EditableText) {}

  void* interface_cast(QAccessible::InterfaceType type) override {
    if (type == QAccessible::TextInterface) return static_cast<QAccessibleTextInterface*>(this);
    return QAccessibleWidget::interface_cast(type);
  }
  QString text(QAccessible::Text t) const override {
    if (t == QAccessible::Name) return QCoreApplication::translate("LogView", "日志");
    if (t == QAccessible::Value) return log()->allText();
    return QAccessibleWidget::text(t);
  }
  QAccessible::State state() const override {
    QAccessible::State s = QAccessibleWidget::state();
    s.readOnly = true;
    s.multiLine = true;
    return s;
  }

  // Nothing is selected, and the caret stays at the start.
  void selection(int, int* start, int* end) const override { *start = *end = 0; }
  int selectionCount() const override { return 0; }
  void addSelection(int, int) override {}
  void removeSelection(int) override {}
  void setSelection(int, int, int) override {}
  int cursorPosition() const override { return 0; }
  void setCursorPosition(int) override {}
  QString text(int start, int end) const override {
    return log()->allText().mid(start, end - start);
  }
  int characterCount() const override { return static_cast<int>(log()->allText().size()); }
  QRect characterRect(int) const override { return {}; }
  int offsetAtPoint(const QPoint&) const override { return -1; }
  void scrollToSubstring(int, int) override {}
  QString attributes(int offset, int* start, int* end) const override {
    *start = *end = offset;
    return {};
  }

 private:
  LogView* log() const { return static_cast<LogView*>(widget()); }
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
    s.expanded = button()->isExpanded();
    s.collapsed = !button()->isExpanded();
    return s;
  }
  // Pressed and focused like the push buttons beside it.
  QStringList actionNames() const override {
    return QStringList{pressAction()} + QAccessibleWidget::actionNames();
  }
  void doAction(const QString& name) override {
    if (name == pressAction()) return button()->click();
    QAccessibleWidget::doAction(name);
  }

 private:
  DisclosureButton* button() const { return static_cast<DisclosureButton*>(widget()); }
};

QAccessibleInterface* factory(const QString& className, QObject* object) {
  // A window that is a plain QWidget would otherwise be a "filler"; screen readers know a window,
  // and read its title, by the frame role.
  if (className == QLatin1String("QWidget") && static_cast<QWidget*>(object)->isWindow()) {
    return new QAccessibleWidget(static_cast<QWidget*>(object), QAccessible::Window);
  }
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

void expandedChanged(QWidget* widget) {
  QAccessible::State changed;
  changed.expanded = true;
  changed.collapsed = true;
  QAccessibleStateChangeEvent event(widget, changed);
  QAccessible::updateAccessibility(&event);
#ifdef KESTRAVINE_ATSPI
  // Qt 6 forwards only changes of checked, active, enabled and focused to AT-SPI. The signal
  // goes out on the connection Qt's bridge opened under the name "a11y" (not connected while
  // no screen reader runs), so that it comes from the application that owns the object, at
  // the object path the bridge gives it.
  const QDBusConnection bus(QStringLiteral("a11y"));
  QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(widget);
  if (!bus.isConnected() || iface == nullptr) return;
  const QString path =
      QStringLiteral("/org/a11y/atspi/accessible/") + QString::number(QAccessible::uniqueId(iface));
  const bool expanded = iface->state().expanded;
  for (const auto& [state, on] :
       {std::pair{"collapsed", !expanded}, std::pair{"expanded", expanded}}) {
    QDBusMessage signal = QDBusMessage::createSignal(
        path, QStringLiteral("org.a11y.atspi.Event.Object"), QStringLiteral("StateChanged"));
    signal << QString::fromLatin1(state) << static_cast<int>(on) << 0
           << QVariant::fromValue(QDBusVariant(0)) << QVariantMap();
    bus.send(signal);
  }
#endif
}

}  // namespace kestravine::accessibility
