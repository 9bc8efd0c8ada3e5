#include "library/ProgramDeletion.h"

#include "app/StringTable.h"
#include "platform/MessageBox.h"

#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace talvo {

QString PositionSideFilePath(const QString& programPath)
{
    QString side = programPath;
    side.replace(QStringLiteral(".zq"), QStringLiteral(".pos"), Qt::CaseSensitive);
    side.replace(QStringLiteral(".zqx"), QStringLiteral(".pos"), Qt::CaseSensitive);
    return side;
}

bool DeleteFileReporting(const QString& path)
{
    int error = 0;
    QFileInfo info(path);
    // remove() would also take an empty folder; only files are deleted here.
    if (info.isDir() && !info.isSymLink())
        error = EISDIR;
    else if (std::remove(QFile::encodeName(path).constData()) != 0)
        error = errno;
    if (error == 0)
        return true;
    const QByteArray name = path.toUtf8();
    const QByteArray reason = QString::fromLocal8Bit(std::strerror(error)).toUtf8();
    const QString text = QString::asprintf(LoadString(Str::DeleteProgramFailed).toUtf8().constData(),
                                           name.constData(), reason.constData());
    ShowMessageBox(nullptr, text, LoadString(Str::ErrorCaption), kErrorBoxStyle);
    return false;
}

} // namespace talvo
