#include "ui/widget_parts.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

#include "ui/focus_ring.h"
#include "ui/return_key.h"
#include "ui/style.h"

namespace kestravine::widget_parts {

namespace {

const char* const kRoleProperty = "kestravineTextRole";

QColor colourFor(Role role, const QPalette& palette) {
  switch (role) {
    case Role::primary:
      return style::primary(palette);
    case Role::secondary:
      return style::secondary(palette);
    case Role::tertiary:
      break;
  }
  return style::tertiary(palette);
}

}  // namespace

void recolour(QLabel* l, const QPalette& from) {
  QPalette palette = l->palette();
  palette.setColor(QPalette::WindowText,
                   colourFor(static_cast<Role>(l->property(kRoleProperty).toInt()), from));
  l->setPalette(palette);
}

QLabel* label(const QString& content, const QFont& font, Role role, bool wrap,
              const QPalette& palette) {
  auto* l = new QLabel(content);
  l->setTextFormat(Qt::PlainText);
  l->setFont(font);
  l->setProperty(kRoleProperty, static_cast<int>(role));
  recolour(l, palette);
  l->setWordWrap(wrap);
  l->setAlignment(Qt::AlignLeft | Qt::AlignTop);
  return l;
}

QPushButton* pushButton(const QString& title) {
  auto* button = new QPushButton(title);
  button->setAutoDefault(false);
  button->setStyle(focus_ring::buttonStyle());
  return_key::pressesButton(button);
  return button;
}

QWidget* buttonRow(QPushButton* button, bool leading) {
  auto* row = new QWidget;
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(0, 0, 0, 0);
  if (!leading) layout->addStretch(1);
  layout->addWidget(button, 0, Qt::AlignVCenter);
  if (leading) layout->addStretch(1);
  return row;
}

}  // namespace kestravine::widget_parts
