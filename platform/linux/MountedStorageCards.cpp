#include "platform/linux/MountInfo.h"

#include "platform/FileNames.h"

#include <QFile>
#include <QSet>
#include <pwd.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace talvo {
namespace {

constexpr const char* kMountInfoPath = "/proc/self/mountinfo";
// Field 5 of a mountinfo line (counting from 1) is the mount point.
constexpr int kMountPointField = 4;

// The kernel writes blanks, tabs, newlines and backslashes of a path as \ooo.
QByteArray UnescapeMountPath(const QByteArray& field)
{
    QByteArray out;
    out.reserve(field.size());
    for (qsizetype i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && field[i + 1] >= '0' && field[i + 1] <= '3') {
            bool ok = false;
            int code = field.mid(i + 1, 3).toInt(&ok, 8);
            if (ok) {
                out.append(static_cast<char>(code));
                i += 3;
                continue;
            }
        }
        out.append(field[i]);
    }
    return out;
}

QString CurrentUser()
{
    QString user = qEnvironmentVariable("USER");
    if (!user.isEmpty())
        return user;
    if (const passwd* entry = getpwuid(getuid()))
        return QString::fromLocal8Bit(entry->pw_name);
    return {};
}

class MountedStorageCards : public StorageCards {
public:
    std::vector<StorageCard> Enumerate() const override
    {
        QFile table(QString::fromLatin1(kMountInfoPath));
        if (!table.open(QIODevice::ReadOnly))
            return {};
        return RemovableMounts(table.readAll(), CurrentUser());
    }
};

} // namespace

std::vector<StorageCard> RemovableMounts(const QByteArray& mountInfo, const QString& user)
{
    std::vector<StorageCard> cards;
    if (user.isEmpty())
        return cards;
    const QString parents[] = {QStringLiteral("/media/") + user, QStringLiteral("/run/media/") + user};
    QSet<QString> seen;
    for (const QByteArray& line : mountInfo.split('\n')) {
        QList<QByteArray> fields = line.split(' ');
        if (fields.size() <= kMountPointField)
            continue;
        QString mountPoint = DecodeFileName(UnescapeMountPath(fields[kMountPointField]));
        int slash = mountPoint.lastIndexOf(QLatin1Char('/'));
        if (slash <= 0 || slash == mountPoint.size() - 1)
            continue;
        QString parent = mountPoint.left(slash);
        if (parent != parents[0] && parent != parents[1])
            continue;
        if (seen.contains(mountPoint))
            continue;
        seen.insert(mountPoint);
        cards.push_back({mountPoint.mid(slash + 1), mountPoint});
    }
    return cards;
}

std::unique_ptr<StorageCards> CreateMountedStorageCards()
{
    return std::make_unique<MountedStorageCards>();
}

bool GetStorageSpace(const QString& folder, StorageSpace* space)
{
    struct statvfs info {};
    if (statvfs(EncodeFileName(folder).constData(), &info) != 0)
        return false;
    const std::uint64_t unit = info.f_frsize ? info.f_frsize : info.f_bsize;
    space->totalBytes = static_cast<std::uint64_t>(info.f_blocks) * unit;
    space->freeBytes = static_cast<std::uint64_t>(info.f_bfree) * unit;
    space->availableBytes = static_cast<std::uint64_t>(info.f_bavail) * unit;
    return true;
}

} // namespace talvo
