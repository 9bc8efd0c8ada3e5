#include "library/ProgramDeletion.h"

#include "base/StringTable.h"
#include "platform/FileNames.h"
#include "platform/MessageBox.h"
#include "platform/SystemError.h"

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
    const SystemError error = DeleteFileOnly(path);
    if (error.code == ERROR_SUCCESS)
        return true;
    const QByteArray name = DisplayFileName(path).toUtf8();
    const QByteArray reason = error.text.toUtf8();
    const QString text = QString::asprintf(LoadString(Str::DeleteProgramFailed).toUtf8().constData(),
                                           name.constData(), reason.constData());
    ShowMessageBox(nullptr, text, LoadString(Str::ErrorCaption), kErrorBoxStyle);
    return false;
}

} // namespace talvo
