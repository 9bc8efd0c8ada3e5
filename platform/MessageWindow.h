#pragma once
// Window messages on Qt: a window receives numbered messages with two
// parameters, either posted (queued in order on the UI thread, safe from any
// thread) or sent (handled before the call returns), plus numbered timers.
//
// Contract:
// - PostMessage may be called from any thread; the message is delivered on the
//   window's thread, after every message posted before it.
// - SendMessage from the window's own thread calls WindowProc directly; from
//   another thread it blocks until the window's thread has handled it.
// - Buffer-done notices of the wave output travel as their own event type so
//   that RemovePostedBufferDone can discard the pending ones and nothing else.
// - Timers keep the ids their users give them; setting an id again restarts it.
#include <QEvent>
#include <QHash>
#include <QWidget>
#include <cstdint>

namespace talvo {

using UINT = std::uint32_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;

inline constexpr UINT WM_CLOSE = 0x0010;
inline constexpr UINT WM_SETTINGCHANGE = 0x001A;
inline constexpr UINT WM_HELP = 0x0053;
inline constexpr UINT WM_COPYDATA = 0x004A;
inline constexpr UINT WM_COMMAND = 0x0111;
inline constexpr UINT WM_TIMER = 0x0113;
inline constexpr UINT MM_WOM_OPEN = 0x03BB;
inline constexpr UINT MM_WOM_CLOSE = 0x03BC;
inline constexpr UINT MM_WOM_DONE = 0x03BD;

// The record that travels with WM_COPYDATA.
struct COPYDATASTRUCT {
    std::uintptr_t dwData;
    std::uint32_t cbData;
    const void* lpData;
};

class MessageWindow : public QWidget {
    Q_OBJECT
public:
    explicit MessageWindow(QWidget* parent = nullptr);
    ~MessageWindow() override;

    void PostMessage(UINT message, WPARAM wParam = 0, LPARAM lParam = 0);
    LRESULT SendMessage(UINT message, WPARAM wParam = 0, LPARAM lParam = 0);
    void PostCommand(std::uint16_t id) { PostMessage(WM_COMMAND, id, 0); }
    LRESULT SendCommand(std::uint16_t id) { return SendMessage(WM_COMMAND, id, 0); }

    // Removes every buffer-done notice still waiting for this window.
    void RemovePostedBufferDone();
    // Handles, now, every buffer-done notice already waiting for this window
    // (for a loop nested in a handler that waits for them).
    void DeliverPostedBufferDone();

    void SetTimer(UINT id, UINT periodMs);
    void KillTimer(UINT id);
    bool IsTimerRunning(UINT id) const { return timers_.contains(id); }

    // Handles one message; the default handles nothing and returns 0.
    virtual LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam);

protected:
    bool event(QEvent* event) override;
    void timerEvent(QTimerEvent* event) override;

private:
    QHash<UINT, int> timers_;   // our id -> Qt's timer id
    QHash<int, UINT> timerIds_; // Qt's timer id -> our id
};

} // namespace talvo
