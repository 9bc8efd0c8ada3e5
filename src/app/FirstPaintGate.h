#pragma once
// Holds a command back until its window has been drawn once.  The main window
// queues its initial load at creation; held here, the load's scan of a large
// library runs after the first frame is on screen instead of before it.
//
// Contract:
// - The command is posted to the window exactly once: after the window's
//   first paint event; or, when the window is still hidden once the event
//   loop runs (a test driving it unseen), at that point; or, when a shown
//   window is not drawn within kMaxHoldMs (started minimised, on a hidden
//   workspace), then.
// - Everything happens on the window's thread; the gate is a child of the
//   window and goes with it.
#include "platform/MessageWindow.h"

#include <QObject>
#include <cstdint>

namespace talvo {

class FirstPaintGate final : public QObject {
public:
    // A window shown but never exposed still gets its command this long after creation.
    static constexpr int kMaxHoldMs = 1000;

    static void PostCommandAfterFirstPaint(MessageWindow& window, std::uint16_t command);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    FirstPaintGate(MessageWindow& window, std::uint16_t command);
    void release();

    MessageWindow& window_;
    const std::uint16_t command_;
    bool released_ = false;
};

} // namespace talvo
