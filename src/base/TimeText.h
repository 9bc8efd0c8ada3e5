#pragma once
#include "base/StringTable.h"

#include <QString>
#include <cstdint>

namespace talvo {

// A time as hours (not wrapped at 24), minutes and seconds: "%.02d:%.02d:%.02d".
inline QString FormatHms(std::uint32_t ms)
{
    return QString::asprintf(qPrintable(LoadString(Str::TimeHms)), static_cast<int>(ms / 3600000),
                             static_cast<int>(ms / 60000 % 60), static_cast<int>(ms / 1000 % 60));
}

} // namespace talvo
