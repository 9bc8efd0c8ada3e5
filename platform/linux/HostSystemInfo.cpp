#include "platform/SystemInfo.h"

#include <QFile>
#include <QString>

namespace talvo {
namespace {

// The OS major version the player's logic expects of its platform.
constexpr int kOsMajorVersion = 5;

std::optional<QString> readFirstLine(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    // The device-tree model is NUL-terminated.
    QString text = QString::fromUtf8(file.readAll()).remove(QChar(0)).trimmed();
    if (text.isEmpty())
        return std::nullopt;
    return text;
}

class HostInfo final : public SystemInfo {
public:
    std::optional<std::u16string> PlatformType() const override
    {
        QString type = qEnvironmentVariable("TALVOPLAYER_PLATFORM", QStringLiteral("PocketPC"));
        return type.toStdU16String();
    }

    std::optional<std::u16string> OemInfo() const override
    {
        if (qEnvironmentVariableIsSet("TALVOPLAYER_OEM_INFO"))
            return qEnvironmentVariable("TALVOPLAYER_OEM_INFO").toStdU16String();
        if (auto model = readFirstLine(QStringLiteral("/proc/device-tree/model")))
            return model->toStdU16String();
        auto vendor = readFirstLine(QStringLiteral("/sys/class/dmi/id/sys_vendor"));
        auto product = readFirstLine(QStringLiteral("/sys/class/dmi/id/product_name"));
        if (!vendor && !product)
            return std::nullopt;
        QStringList parts;
        if (vendor)
            parts << *vendor;
        if (product)
            parts << *product;
        return parts.join(QLatin1Char(' ')).toStdU16String();
    }

    int OsMajorVersion() const override { return kOsMajorVersion; }
};

} // namespace

const SystemInfo& HostSystemInfo()
{
    static const HostInfo info;
    return info;
}

} // namespace talvo
