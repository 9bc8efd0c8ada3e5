#pragma once
// Hands each record of the remote-control queue to the main window as message
// 1136, sent synchronously: the reader waits until the window has handled the
// record, so one record at most is in flight however fast a remote sends.
//
// Contract: the window must outlive this object.  Destroying it ends the wait
// for a record the window has not handled yet; the window then handles its
// own copy of the record, or none if it is gone first.
#include "platform/MessageWindow.h"
#include "platform/RemoteControlQueue.h"

#include <atomic>
#include <memory>

namespace talvo {

class RemoteControl {
public:
    RemoteControl(MessageWindow& window, std::unique_ptr<RemoteControlQueue> queue);
    ~RemoteControl();
    RemoteControl(const RemoteControl&) = delete;
    RemoteControl& operator=(const RemoteControl&) = delete;

    // StartRemoteControlQueue: false when there is no queue.
    bool Start();

private:
    void sendRecord(const std::uint8_t* record);

    MessageWindow& window_;
    std::atomic<bool> stopping_{false};
    std::unique_ptr<RemoteControlQueue> queue_;
};

} // namespace talvo
