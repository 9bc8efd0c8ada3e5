#include "base/DetectPlatform.h"

#include <QString>

namespace talvo {

int DetectPlatformFrom(const SystemInfo& system)
{
    // Systems before major version 3 had no Smartphone edition.
    if (system.OsMajorVersion() < 3)
        return 0;
    std::optional<std::u16string> type = system.PlatformType();
    if (!type)
        return 0;
    QString text = QString::fromStdU16String(*type);
    bool pocketPc = text.compare(u"PocketPC", Qt::CaseInsensitive) == 0;
    bool smartphone = text.compare(u"Smartphone", Qt::CaseInsensitive) == 0;
    return !pocketPc && smartphone ? 1 : 0;
}

int DetectPlatform()
{
    static const int answer = DetectPlatformFrom(HostSystemInfo());
    return answer;
}

} // namespace talvo
