#pragma once
#include "platform/SystemInfo.h"

namespace talvo {

// 1 on a Smartphone (key-driven), 0 on a Pocket PC (touch).  Computed once from
// the platform-type text and kept for the life of the process.
int DetectPlatform();

// The uncached rule, for tests: what DetectPlatform answers on this system.
int DetectPlatformFrom(const SystemInfo& system);

} // namespace talvo
