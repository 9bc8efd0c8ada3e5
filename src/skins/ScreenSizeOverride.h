#pragma once
// The screen size a skin is chosen for can be set from outside:
// TALVOPLAYER_SCREEN=WxH (e.g. 240x320) stands for the real screen, so a test
// or a user can see how skins behave on another device.
#include <QSize>
#include <QStringView>
#include <optional>

namespace talvo {

// Two positive decimal numbers up to kMaxScreenSide joined by "x" or "X",
// nothing else; nullopt otherwise.
std::optional<QSize> ParseScreenSize(QStringView text);

// TALVOPLAYER_SCREEN parsed; nullopt when unset or malformed.
std::optional<QSize> ScreenSizeFromEnvironment();

inline constexpr int kMaxScreenSide = 32767;

} // namespace talvo
