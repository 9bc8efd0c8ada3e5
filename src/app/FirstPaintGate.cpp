#include "app/FirstPaintGate.h"

#include <QEvent>
#include <QTimer>

namespace talvo {

void FirstPaintGate::PostCommandAfterFirstPaint(MessageWindow& window, std::uint16_t command)
{
    new FirstPaintGate(window, command);
}

FirstPaintGate::FirstPaintGate(MessageWindow& window, std::uint16_t command)
    : QObject(&window), window_(window), command_(command)
{
    window_.installEventFilter(this);
    // Whoever creates the window shows it before the event loop runs, or not at all.
    QTimer::singleShot(0, this, [this] {
        if (!window_.isVisible())
            release();
    });
    QTimer::singleShot(kMaxHoldMs, this, [this] { release(); });
}

bool FirstPaintGate::eventFilter(QObject* watched, QEvent* event)
{
    // Posted from inside the paint, the command runs once the frame is drawn.
    if (watched == &window_ && event->type() == QEvent::Paint)
        release();
    return QObject::eventFilter(watched, event);
}

void FirstPaintGate::release()
{
    if (released_)
        return;
    released_ = true;
    window_.removeEventFilter(this);
    window_.PostCommand(command_);
    deleteLater();
}

} // namespace talvo
