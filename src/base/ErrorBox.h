#pragma once
// Errors the user must see: a modal box captioned "TalvoPlayer Error" (string
// 5003), with an OK button and the error icon, brought to the foreground and
// kept on top (style 0x50010).
#include <QString>

class QWidget;

namespace talvo {

// Returns the box's answer (IDOK).
int ShowErrorBox(QWidget* owner, const QString& text);

} // namespace talvo
