#pragma once
// The device watchers of the main window: the call monitor, the remote-control
// queue and the MPRIS2 media player.  Each one whose service is missing (no
// bus, no ModemManager, no queue) is simply absent; playback never depends on
// them.
#include "device/CallMonitor.h"
#include "device/MprisServer.h"
#include "device/RemoteControl.h"
#include "platform/CallLine.h"
#include "platform/RemoteControlQueue.h"

#include <QString>
#include <memory>

namespace talvo {

// The platform services the watchers use; a missing one means no watcher.
struct DeviceServices {
    std::unique_ptr<CallLine> callLine;
    std::unique_ptr<RemoteControlQueue> remoteQueue;
    QString mprisBusName; // the media player's name on the session bus
};

// The machine's own services: ModemManager on the system bus, the queue
// "/Avrcp10MsgQ", and the player's MPRIS2 name on the session bus.
DeviceServices CreateDeviceServices();

class DeviceEvents {
public:
    // Starts every watcher whose service is there.  The objects of player must outlive
    // this object.
    DeviceEvents(const MprisPlayerObjects& player, DeviceServices services);
    ~DeviceEvents();

    // The player's state may have changed (the display was redrawn).
    void PlayerChanged();

    bool HasCallMonitor() const { return callMonitor_ != nullptr; }
    bool HasRemoteControl() const { return remoteControl_ != nullptr; }
    bool HasMediaPlayerService() const { return mpris_ != nullptr; }

private:
    std::unique_ptr<CallMonitor> callMonitor_;
    std::unique_ptr<RemoteControl> remoteControl_;
    std::unique_ptr<MprisServer> mpris_;
};

} // namespace talvo
