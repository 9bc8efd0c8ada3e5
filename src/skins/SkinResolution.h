#pragma once
// The screen resolutions a skin offers, and the one chosen for a screen.
//
// Every key of section Skin whose name begins with "Background" (exactly so)
// offers one resolution: the rest of the name split at its first upper-case
// "X", each part read as a decimal ("Background240X320" offers 240 by 320).
// The choice is the offer equal to the screen size, else the first offer in
// file order that is nowhere larger than the screen; there is no search for a
// closest fit, so the file's order decides.  No rotation is tried.
#include "skins/IniFile.h"

#include <QSize>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace talvo {

struct SkinResolution {
    std::int32_t width = 0;
    std::int32_t height = 0;
    // "%dX%d": appended to every element and bitmap key the layout reads.
    std::u16string suffix;

    friend bool operator==(const SkinResolution&, const SkinResolution&) = default;
};

// In file order.  A key without "X" after the prefix, or whose width or height
// is not positive, offers nothing: no screen has such a size.
std::vector<SkinResolution> OfferedResolutions(const IniFile& ini);

std::optional<SkinResolution> ChooseResolution(const IniFile& ini, QSize screen);

} // namespace talvo
