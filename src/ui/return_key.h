#pragma once

class QAbstractButton;

namespace kestravine::return_key {

// Makes Return and Enter press `button` while it has the keyboard focus, as Space does: desktops
// and screen-reader users expect it of every button, not only of a dialog's default one. The
// focused button takes these keys before any shortcut of the window bound to them. GUI thread.
void pressesButton(QAbstractButton* button);

}  // namespace kestravine::return_key
