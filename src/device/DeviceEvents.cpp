#include "device/DeviceEvents.h"

namespace talvo {

DeviceServices CreateDeviceServices()
{
    DeviceServices services;
    services.callLine = CreateModemManagerCallLine();
    return services;
}

DeviceEvents::DeviceEvents(MessageWindow& window, DeviceServices services)
{
    if (services.callLine) {
        callMonitor_ = std::make_unique<CallMonitor>(window, std::move(services.callLine));
        if (!callMonitor_->Start())
            callMonitor_.reset();
    }
}

} // namespace talvo
