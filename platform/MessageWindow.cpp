#include "platform/MessageWindow.h"

#include "platform/EventQueueHandOff.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimerEvent>

namespace talvo {
namespace {

const QEvent::Type kMessageEvent = static_cast<QEvent::Type>(QEvent::registerEventType());
const QEvent::Type kBufferDoneEvent = static_cast<QEvent::Type>(QEvent::registerEventType());

class WindowMessageEvent final : public QEvent {
public:
    WindowMessageEvent(UINT message, WPARAM wParam, LPARAM lParam)
        : QEvent(message == MM_WOM_DONE ? kBufferDoneEvent : kMessageEvent), message(message), wParam(wParam),
          lParam(lParam)
    {
    }
    const UINT message;
    const WPARAM wParam;
    const LPARAM lParam;
};

} // namespace

MessageWindow::MessageWindow(QWidget* parent) : QWidget(parent)
{
}

MessageWindow::~MessageWindow()
{
    QCoreApplication::removePostedEvents(this);
}

void MessageWindow::PostMessage(UINT message, WPARAM wParam, LPARAM lParam)
{
    PostThroughEventQueue(
        [&] { QCoreApplication::postEvent(this, new WindowMessageEvent(message, wParam, lParam)); });
}

LRESULT MessageWindow::SendMessage(UINT message, WPARAM wParam, LPARAM lParam)
{
    if (QThread::currentThread() == thread())
        return WindowProc(message, wParam, lParam);
    LRESULT result = 0;
    QMetaObject::invokeMethod(
        this, [&] { result = WindowProc(message, wParam, lParam); }, Qt::BlockingQueuedConnection);
    return result;
}

void MessageWindow::RemovePostedBufferDone()
{
    QCoreApplication::removePostedEvents(this, kBufferDoneEvent);
}

void MessageWindow::DeliverPostedBufferDone()
{
    QCoreApplication::sendPostedEvents(this, kBufferDoneEvent);
}

void MessageWindow::SetTimer(UINT id, UINT periodMs)
{
    KillTimer(id);
    int qtId = startTimer(static_cast<int>(periodMs), Qt::PreciseTimer);
    if (qtId == 0)
        return;
    timers_.insert(id, qtId);
    timerIds_.insert(qtId, id);
}

void MessageWindow::KillTimer(UINT id)
{
    auto it = timers_.find(id);
    if (it == timers_.end())
        return;
    killTimer(it.value());
    timerIds_.remove(it.value());
    timers_.erase(it);
}

LRESULT MessageWindow::WindowProc(UINT, WPARAM, LPARAM)
{
    return 0;
}

bool MessageWindow::event(QEvent* event)
{
    if (event->type() == kMessageEvent || event->type() == kBufferDoneEvent) {
        auto* message = static_cast<WindowMessageEvent*>(event);
        WindowProc(message->message, message->wParam, message->lParam);
        return true;
    }
    return QWidget::event(event);
}

void MessageWindow::timerEvent(QTimerEvent* event)
{
    auto it = timerIds_.find(event->timerId());
    if (it == timerIds_.end())
        return QWidget::timerEvent(event);
    WindowProc(WM_TIMER, it.value(), 0);
}

} // namespace talvo
