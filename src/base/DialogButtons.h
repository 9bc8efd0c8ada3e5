#pragma once
// The OK and Cancel buttons every dialog of the player ends with: the string
// table's labels, OK the default button (Enter), Cancel also on Escape, and
// object names the tests and screen readers find them by.
class QDialog;
class QDialogButtonBox;

namespace talvo {

QDialogButtonBox* MakeDialogButtons(QDialog& dialog, bool withCancel = true);

} // namespace talvo
