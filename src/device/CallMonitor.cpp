#include "device/CallMonitor.h"

#include "base/CommandIds.h"

#include <chrono>

namespace talvo {

CallMonitor::CallMonitor(MessageWindow& window, std::unique_ptr<CallLine> line)
    : window_(window), line_(std::move(line))
{
}

CallMonitor::~CallMonitor()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    stopped_.notify_all();
    line_.reset();
}

bool CallMonitor::Start()
{
    return line_ && line_->Open([this](CallState state) { onCallState(state); });
}

void CallMonitor::onCallState(CallState state)
{
    // The first parameter tells an incoming call (1) from an outgoing one (0);
    // the second whether a call begins (1) or ended (0).
    switch (state) {
    case CallState::Offering:
        postCallEvent(1, 1);
        break;
    case CallState::Dialling:
        postCallEvent(0, 1);
        break;
    case CallState::Disconnected:
        if (waitBeforeCallEnded())
            postCallEvent(0, 0);
        break;
    case CallState::Other:
        break;
    }
}

bool CallMonitor::waitBeforeCallEnded()
{
    std::unique_lock lock(mutex_);
    return !stopped_.wait_for(lock, std::chrono::milliseconds(kCallEndedDelayMs),
                              [this] { return stopping_; });
}

void CallMonitor::postCallEvent(WPARAM first, LPARAM second)
{
    std::lock_guard lock(mutex_);
    if (!stopping_)
        window_.PostMessage(Message::CallEvent, first, second);
}

} // namespace talvo
