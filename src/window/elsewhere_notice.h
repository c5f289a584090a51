#pragma once

#include <QMessageBox>

namespace kestravine {

// A later launch on another desktop than the running launcher's (a second session of the same
// user: VNC, a second seat, a locked screen left behind): the running window cannot come forward
// here, so a small window on this desktop says where it is, with one button that closes it.
//
// Threading: GUI thread only.
class ElsewhereNotice final : public QMessageBox {
  Q_OBJECT

 public:
  explicit ElsewhereNotice(const QString& text);
};

}  // namespace kestravine
