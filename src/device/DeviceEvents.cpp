#include "device/DeviceEvents.h"

namespace talvo {

DeviceServices CreateDeviceServices()
{
    DeviceServices services;
    services.callLine = CreateModemManagerCallLine();
    services.remoteQueue = CreatePosixRemoteControlQueue();
    return services;
}

DeviceEvents::DeviceEvents(MessageWindow& window, DeviceServices services)
{
    if (services.callLine) {
        callMonitor_ = std::make_unique<CallMonitor>(window, std::move(services.callLine));
        if (!callMonitor_->Start())
            callMonitor_.reset();
    }
    if (services.remoteQueue) {
        remoteControl_ = std::make_unique<RemoteControl>(window, std::move(services.remoteQueue));
        if (!remoteControl_->Start())
            remoteControl_.reset();
    }
}

DeviceEvents::~DeviceEvents() = default;

} // namespace talvo
