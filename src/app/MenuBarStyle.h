#pragma once
// The application's style with one change: the menu bar's overflow button
// shows a chevron drawn here rather than the style's own bitmap.  To load
// that bitmap Qt asks every installed image plugin whether it can read it,
// which loads them all, and the JPEG library with them, before the window is
// first drawn.
#include <QProxyStyle>

namespace talvo {

class MenuBarStyle final : public QProxyStyle {
public:
    // Takes base over, as QProxyStyle does.
    explicit MenuBarStyle(QStyle* base) : QProxyStyle(base) {}

    QIcon standardIcon(StandardPixmap which, const QStyleOption* option = nullptr,
                       const QWidget* widget = nullptr) const override;
};

// Makes the application's current style (the platform's, or the one the user
// chose with -style or QT_STYLE_OVERRIDE) the base of a MenuBarStyle.
void UseMenuBarStyle();

} // namespace talvo
