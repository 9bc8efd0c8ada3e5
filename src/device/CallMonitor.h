#pragma once
// Turns the phone's call states into the call-event message 5586 for the main
// window, which pauses and resumes playback.  Nothing here touches playback.
//
// Contract: the posts come from the call line's thread.  A call that ended is
// posted only after kCallEndedDelayMs, waited on that thread, so the listener
// hears the end of the call before playback resumes; destroying the monitor
// cuts the wait short and posts nothing more.  The window must outlive the
// monitor.
#include "platform/CallLine.h"
#include "platform/MessageWindow.h"

#include <condition_variable>
#include <memory>
#include <mutex>

namespace talvo {

// The pause between a call's end and the call-ended message.
inline constexpr int kCallEndedDelayMs = 5000;

class CallMonitor {
public:
    CallMonitor(MessageWindow& window, std::unique_ptr<CallLine> line);
    ~CallMonitor();
    CallMonitor(const CallMonitor&) = delete;
    CallMonitor& operator=(const CallMonitor&) = delete;

    // Opens the line; false when there is no telephony (playback is unaffected).
    bool Start();

private:
    void onCallState(CallState state);
    bool waitBeforeCallEnded();
    void postCallEvent(WPARAM first, LPARAM second);

    MessageWindow& window_;
    std::mutex mutex_;
    std::condition_variable stopped_;
    bool stopping_ = false;
    std::unique_ptr<CallLine> line_;
};

} // namespace talvo
