#include "device/RemoteAction.h"

#include <array>
#include <cstring>

namespace talvo {
namespace {

struct RemoteCode {
    std::uint32_t code;
    RemoteAction action;
};

constexpr std::size_t kRemoteCodeOffset = 4;
constexpr std::array<RemoteCode, 8> kRemoteCodes{{
    {68, RemoteAction::PlayStop},         // play
    {69, RemoteAction::PlayStop},         // stop
    {70, RemoteAction::PlayStop},         // pause
    {72, RemoteAction::ForwardHold},      // rewind: starts the forward scan, deliberately
    {75, RemoteAction::ForwardHold},      // forward
    {76, RemoteAction::BackwardHold},     // backward
    {203, RemoteAction::ForwardRelease},  // forward released
    {204, RemoteAction::BackwardRelease}, // backward released
}};

} // namespace

RemoteAction RemoteActionFor(const std::uint8_t* message, std::size_t size)
{
    if (!message || size != kRemoteRecordSize)
        return RemoteAction::None;
    std::uint32_t code = 0;
    std::memcpy(&code, message + kRemoteCodeOffset, sizeof code);
    for (const RemoteCode& entry : kRemoteCodes) {
        if (entry.code == code)
            return entry.action;
    }
    return RemoteAction::None;
}

} // namespace talvo
