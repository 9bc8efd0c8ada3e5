#include "device/DeviceEvents.h"

namespace talvo {

DeviceServices CreateDeviceServices()
{
    DeviceServices services;
    services.callLine = CreateModemManagerCallLine();
    services.remoteQueue = CreatePosixRemoteControlQueue();
    services.mprisBusName = QString::fromLatin1(kMprisBusName);
    return services;
}

DeviceEvents::DeviceEvents(const MprisPlayerObjects& player, DeviceServices services)
{
    if (services.callLine) {
        callMonitor_ = std::make_unique<CallMonitor>(player.window, std::move(services.callLine));
        if (!callMonitor_->Start())
            callMonitor_.reset();
    }
    if (services.remoteQueue) {
        remoteControl_ = std::make_unique<RemoteControl>(player.window, std::move(services.remoteQueue));
        if (!remoteControl_->Start())
            remoteControl_.reset();
    }
    if (!services.mprisBusName.isEmpty()) {
        mpris_ = std::make_unique<MprisServer>(player);
        if (!mpris_->Start(services.mprisBusName))
            mpris_.reset();
    }
}

DeviceEvents::~DeviceEvents() = default;

void DeviceEvents::PlayerChanged()
{
    if (mpris_)
        mpris_->Refresh();
}

} // namespace talvo
