#pragma once

#include <QFont>
#include <QPalette>
#include <QString>

class QLabel;
class QPushButton;
class QWidget;

namespace kestravine::widget_parts {

// The pieces the window's arrangements are built from. Stateless; GUI thread only.

// A text's colour by role. A label keeps its role, so that a change of theme recolours it.
enum class Role { primary, secondary, tertiary };

// A plain-text label (never markup) in `font` and `role`'s colour from `palette`, aligned to the
// top left; `wrap` wraps it at the available width.
QLabel* label(const QString& content, const QFont& font, Role role, bool wrap,
              const QPalette& palette);
// Gives a label made by label() its role's colour from `palette` (a new theme's).
void recolour(QLabel* label, const QPalette& palette);
// A push button with the launcher's focus ring, pressed by Return and Enter when focused, and
// never a dialog's default button by itself.
QPushButton* pushButton(const QString& title);
// A row holding one button, at the leading or the trailing edge.
QWidget* buttonRow(QPushButton* button, bool leading);

}  // namespace kestravine::widget_parts
