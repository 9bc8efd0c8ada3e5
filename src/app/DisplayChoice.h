#pragma once
// Which Qt platform the process opens its windows on, settled before the
// QApplication exists: without a display Qt would abort with a core dump.
#include <QStringList>

namespace talvo {

// A QT_QPA_PLATFORM given by the caller is kept.  Otherwise the player runs
// natively on a Wayland display that answers, else on an X11 one.  With
// neither, the desktop-sync switches run offscreen (their boxes go to standard
// error unless TALVOPLAYER_MESSAGES says otherwise) and anything else prints
// one line to standard error and returns false: the caller exits with 1.
bool ChooseDisplayPlatform(const QStringList& arguments);

} // namespace talvo
