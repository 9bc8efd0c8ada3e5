#pragma once
// Facts about the device the player runs on: its platform type, the maker's
// OEM text and the operating-system version.  On Linux the platform type is
// chosen by TALVOPLAYER_PLATFORM, the OEM text comes from DMI or the device
// tree (TALVOPLAYER_OEM_INFO overrides it), and the OS major version is 5.
#include <optional>
#include <string>

namespace talvo {

class SystemInfo {
public:
    virtual ~SystemInfo() = default;
    // The platform-type text ("PocketPC", "Smartphone"), or none when it cannot be read.
    virtual std::optional<std::u16string> PlatformType() const = 0;
    // The OEM information text, or none when the device does not tell.
    virtual std::optional<std::u16string> OemInfo() const = 0;
    virtual int OsMajorVersion() const = 0;
};

// The process-wide instance, reading the environment and /sys at each call.
const SystemInfo& HostSystemInfo();

} // namespace talvo
