#pragma once
// The device watchers of the main window: the call monitor and the
// remote-control queue.  Each one whose service is missing (no
// bus, no ModemManager, no queue) is simply absent; playback never depends on
// them.
#include "device/CallMonitor.h"
#include "device/RemoteControl.h"
#include "platform/CallLine.h"
#include "platform/RemoteControlQueue.h"

#include <memory>

namespace talvo {

// The platform services the watchers use; a missing one means no watcher.
struct DeviceServices {
    std::unique_ptr<CallLine> callLine;
    std::unique_ptr<RemoteControlQueue> remoteQueue;
};

// The machine's own services: ModemManager on the system bus and the queue
// "/Avrcp10MsgQ".
DeviceServices CreateDeviceServices();

class DeviceEvents {
public:
    // Starts every watcher whose service is there.  The window must outlive
    // this object.
    DeviceEvents(MessageWindow& window, DeviceServices services);
    ~DeviceEvents();

    bool HasCallMonitor() const { return callMonitor_ != nullptr; }
    bool HasRemoteControl() const { return remoteControl_ != nullptr; }

private:
    std::unique_ptr<CallMonitor> callMonitor_;
    std::unique_ptr<RemoteControl> remoteControl_;
};

} // namespace talvo
