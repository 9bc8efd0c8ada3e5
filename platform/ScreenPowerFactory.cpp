#include "platform/ScreenPower.h"

namespace talvo {

std::unique_ptr<ScreenPower> CreateScreenPower()
{
    if (!qEnvironmentVariableIsSet(kScreenPowerVariable))
        return CreateDisplayScreenPower();
    const QString path = qEnvironmentVariable(kScreenPowerVariable);
    return CreateRecordingScreenPower(path == QLatin1String(kNoScreenPower) ? QString() : path);
}

} // namespace talvo
