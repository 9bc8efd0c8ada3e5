#include "platform/ProgramFolders.h"

#include "platform/FileNames.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <fcntl.h>
#include <unistd.h>

namespace talvo {
namespace {

constexpr const char* kDataHomeVariable = "XDG_DATA_HOME";
constexpr const char* kMusicVariable = "TALVOPLAYER_MUSIC";
constexpr const char* kCacheHomeVariable = "XDG_CACHE_HOME";
constexpr char kSkinsFolder[] = "Skins";

// Creating a file needs write and search permission on the folder.  Asked of
// the effective user, as the create itself will be; a read-only mount
// answers no here as well.
bool mayCreateFilesIn(const QString& folder)
{
    if (!QFileInfo(folder).isDir())
        return false;
    return ::faccessat(AT_FDCWD, QFile::encodeName(folder).constData(), W_OK | X_OK, AT_EACCESS) == 0;
}

bool sameFolder(const QString& a, const QString& b)
{
    return QDir::cleanPath(QDir(a).absolutePath()) == QDir::cleanPath(QDir(b).absolutePath());
}

// $variable/talvoplayer, or fallback/talvoplayer below the home folder: the
// base-directory rules ignore a relative value.
QString playerFolderBelow(const char* variable, const char* fallback)
{
    QString base = qEnvironmentVariable(variable);
    if (!QDir::isAbsolutePath(base))
        base = QDir::homePath() + QLatin1Char('/') + QLatin1String(fallback);
    return base + QStringLiteral("/talvoplayer");
}

} // namespace

QString InstalledDataFolder(const QString& executableFolder)
{
    // The install layout's relative path from the binaries to the data, so
    // an installed tree may be moved to another prefix as a whole.
    return QDir::cleanPath(executableFolder + QStringLiteral("/" TALVO_BINDIR_TO_DATADIR));
}

QString InstalledDataFolder()
{
    return InstalledDataFolder(QCoreApplication::applicationDirPath());
}

QString ProgramFolder(const QString& executableFolder)
{
    if (QDir(executableFolder).exists(QLatin1String(kSkinsFolder)))
        return executableFolder;
    return InstalledDataFolder(executableFolder);
}

QString ProgramFolder()
{
    return ProgramFolder(QCoreApplication::applicationDirPath());
}

QString MusicFolder()
{
    const QString music = DecodeFileName(qgetenv(kMusicVariable));
    return music.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::MusicLocation) : music;
}

QString PlayerDataFolder()
{
    return playerFolderBelow(kDataHomeVariable, ".local/share");
}

QString PlayerCacheFolder()
{
    return playerFolderBelow(kCacheHomeVariable, ".cache");
}

QString ProgramWriteFolder(const QString& programFolder, const QString& dataFolder)
{
    if (!sameFolder(programFolder, InstalledDataFolder()) && mayCreateFilesIn(programFolder))
        return programFolder;
    QDir().mkpath(dataFolder);
    return dataFolder;
}

} // namespace talvo
