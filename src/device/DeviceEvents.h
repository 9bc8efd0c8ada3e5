#pragma once
// The device watchers of the main window.  Each one whose service is missing
// (no bus, no ModemManager) is simply absent; playback never depends on them.
#include "device/CallMonitor.h"
#include "platform/CallLine.h"
#include "platform/MessageWindow.h"

#include <memory>

namespace talvo {

// The platform services the watchers use; a missing one means no watcher.
struct DeviceServices {
    std::unique_ptr<CallLine> callLine;
};

// The machine's own services: ModemManager on the system bus.
DeviceServices CreateDeviceServices();

class DeviceEvents {
public:
    // Starts every watcher whose service is there.  The window must outlive
    // this object.
    DeviceEvents(MessageWindow& window, DeviceServices services);

    bool HasCallMonitor() const { return callMonitor_ != nullptr; }

private:
    std::unique_ptr<CallMonitor> callMonitor_;
};

} // namespace talvo
