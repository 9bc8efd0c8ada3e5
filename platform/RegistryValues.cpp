// The REG_SZ byte form and the store's location, shared by every registry adapter.
#include "platform/Registry.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace talvo {

std::vector<std::uint8_t> RegSzBytes(std::u16string_view text)
{
    std::vector<std::uint8_t> bytes;
    bytes.reserve((text.size() + 1) * 2);
    for (char16_t c : text) {
        bytes.push_back(std::uint8_t(c & 0xFF));
        bytes.push_back(std::uint8_t(c >> 8));
    }
    bytes.push_back(0);
    bytes.push_back(0);
    return bytes;
}

std::u16string RegSzText(const std::uint8_t* data, DWORD size)
{
    std::u16string text;
    if (!data)
        return text;
    // An odd last byte is half a code unit and is dropped.
    for (DWORD i = 0; i + 1 < size; i += 2) {
        char16_t c = char16_t(data[i] | (data[i + 1] << 8));
        if (c == 0)
            break;
        text.push_back(c);
    }
    return text;
}

std::string DefaultRegistryPath()
{
    const char* explicitPath = std::getenv("TALVOPLAYER_REGISTRY");
    if (explicitPath && *explicitPath)
        return explicitPath;
    std::string config;
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    // The base-directory rules ignore a relative XDG_CONFIG_HOME.
    if (xdg && xdg[0] == '/') {
        config = xdg;
    } else {
        const char* home = std::getenv("HOME");
        if (!home || !*home) {
            const passwd* user = getpwuid(getuid());
            home = user ? user->pw_dir : "/tmp";
        }
        config = std::string(home) + "/.config";
    }
    return config + "/talvoplayer/registry.db";
}

} // namespace talvo
