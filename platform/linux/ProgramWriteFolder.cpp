#include "platform/ProgramWriteFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <fcntl.h>
#include <unistd.h>

namespace talvo {
namespace {

constexpr const char* kDataHomeVariable = "XDG_DATA_HOME";

// Creating a file needs write and search permission on the folder.  Asked of
// the effective user, as the create itself will be; a read-only mount
// answers no here as well.
bool mayCreateFilesIn(const QString& folder)
{
    if (!QFileInfo(folder).isDir())
        return false;
    return ::faccessat(AT_FDCWD, QFile::encodeName(folder).constData(), W_OK | X_OK, AT_EACCESS) == 0;
}

} // namespace

QString PlayerDataFolder()
{
    QString base = qEnvironmentVariable(kDataHomeVariable);
    // The base-directory rules ignore a relative XDG_DATA_HOME.
    if (!QDir::isAbsolutePath(base))
        base = QDir::homePath() + QStringLiteral("/.local/share");
    return base + QStringLiteral("/talvoplayer");
}

QString ProgramWriteFolder(const QString& executableFolder, const QString& dataFolder)
{
    if (mayCreateFilesIn(executableFolder))
        return executableFolder;
    QDir().mkpath(dataFolder);
    return dataFolder;
}

} // namespace talvo
