#include "window/elsewhere_notice.h"

#include <QCoreApplication>
#include <QPushButton>

#include "ui/style.h"

namespace kestravine {

ElsewhereNotice::ElsewhereNotice(const QString& text)
    : QMessageBox(QMessageBox::Information, QStringLiteral("Kestravine"), text) {
  setFont(style::systemFont(13));
  QPushButton* close =
      addButton(QCoreApplication::translate("ElsewhereNotice", "关闭"), QMessageBox::AcceptRole);
  setDefaultButton(close);
  setEscapeButton(close);
}

}  // namespace kestravine
