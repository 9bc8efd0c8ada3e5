#include "sync/SyncRunner.h"

#include "base/StringTable.h"
#include "platform/MessageBox.h"
#include "platform/ProgramFolders.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>

namespace talvo {
namespace {

// "Normal attributes" before a delete: a read-only answer left by a copy tool
// must not survive.
void resetAndDelete(const QString& path)
{
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
    QFile::remove(path);
}

void showDataFileError(int stringId, const QString& path, const QString& reason)
{
    const QByteArray name = path.toUtf8();
    const QByteArray text = reason.toUtf8();
    ShowMessageBox(nullptr, FormatString(stringId, name.constData(), text.constData()),
                   LoadString(Str::ErrorCaption), kErrorBoxStyle);
}

// The system's text for a registry error code, as the platform's message table gives it.
QString systemErrorText(RegStatus status)
{
    switch (status) {
    case ERROR_FILE_NOT_FOUND:
        return QStringLiteral("The system cannot find the file specified.");
    case ERROR_ACCESS_DENIED:
        return QStringLiteral("Access is denied.");
    case ERROR_INVALID_HANDLE:
        return QStringLiteral("The handle is invalid.");
    case ERROR_NOT_ENOUGH_MEMORY:
        return QStringLiteral("Not enough storage is available to process this command.");
    case ERROR_INVALID_PARAMETER:
        return QStringLiteral("The parameter is incorrect.");
    case ERROR_BADDB:
        return QStringLiteral("The configuration registry database is corrupt.");
    case ERROR_REGISTRY_IO_FAILED:
        return QStringLiteral("An I/O operation initiated by the registry failed unrecoverably.");
    case ERROR_KEY_DELETED:
        return QStringLiteral(
            "Illegal operation attempted on a registry key that has been marked for deletion.");
    default:
        return QString();
    }
}

void showBox(const QString& text)
{
    ShowMessageBox(nullptr, text, LoadString(Str::AppName), kErrorBoxStyle);
}

void closeKey(Registry& registry, HKEY key)
{
    registry.FlushKey(key);
    registry.CloseKey(key);
}

} // namespace

QString SyncDataFilePath(const QString& executablePath)
{
    return ProgramWriteFolder(ProgramFolder(QFileInfo(executablePath).absolutePath())) + QLatin1Char('/') +
           QString::fromLatin1(SyncTransport::kDataFileName.data(),
                               static_cast<qsizetype>(SyncTransport::kDataFileName.size()));
}

bool WriteSyncDataFile(const std::vector<std::uint8_t>& bytes, const QString& path)
{
    resetAndDelete(path);
    QElapsedTimer clock;
    clock.start();
    QFile file(path);
    for (;;) {
        const bool opened = file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        QThread::msleep(SyncTransport::kCreateRetryMs);
        // The delete after every attempt clears what blocked the create; on the
        // original platform it could not touch a file held open, and unlinking
        // an open file here would lose the answer, so it follows only a failure.
        if (opened)
            break;
        resetAndDelete(path);
        if (clock.elapsed() > SyncTransport::kCreateLimitMs) {
            showDataFileError(Str::CreateDataFileFailed, path, file.errorString());
            return false;
        }
    }
    const qint64 size = static_cast<qint64>(bytes.size());
    const bool written =
        file.write(reinterpret_cast<const char*>(bytes.data()), size) == size && file.flush();
    if (!written)
        showDataFileError(Str::WriteDataFileFailed, path, file.errorString());
    file.close();
    return written;
}

HRESULT RunSyncCommand(Registry& registry, const QString& executablePath, const SyncHandler& handler)
{
    const QString dataFile = SyncDataFilePath(executablePath);
    resetAndDelete(dataFile);

    HKEY key = 0;
    const RegStatus created =
        registry.CreateKey(HKEY_LOCAL_MACHINE, SyncTransport::kKey, KEY_ALL_ACCESS, &key);
    if (created != ERROR_SUCCESS) {
        showBox(FormatString(Str::SyncCreateKeyFailed, static_cast<int>(created)));
        return E_FAIL;
    }

    std::optional<std::vector<std::uint8_t>> input;
    DWORD size = 0, type = 0;
    RegStatus status = registry.QueryValue(key, SyncTransport::kInputValue, &type, nullptr, &size);
    if ((status == ERROR_SUCCESS || status == ERROR_MORE_DATA) && size > 0) {
        std::vector<std::uint8_t> bytes(size, 0);
        if (registry.QueryValue(key, SyncTransport::kInputValue, &type, bytes.data(), &size) ==
                ERROR_SUCCESS &&
            size > 0) {
            bytes.resize(size);
            input = std::move(bytes);
        }
    }

    SyncAnswer answer = handler(input);
    if (Failed(answer.result) || answer.output.empty()) {
        registry.DeleteValue(key, SyncTransport::kInputValue);
        closeKey(registry, key);
        return Failed(answer.result) ? answer.result : S_OK;
    }

    const auto outputSize = static_cast<DWORD>(answer.output.size());
    RegStatus stored = ERROR_SUCCESS;
    QString failure;
    if (outputSize > SyncTransport::kMaxValueBytes) {
        // The key is left open and "_DataIn" in place: the process ends at once.
        if (!WriteSyncDataFile(answer.output, dataFile))
            return E_FAIL;
        const std::vector<std::uint8_t> path = RegSzBytes(dataFile.toStdU16String());
        stored = registry.SetValue(key, SyncTransport::kOutputValue, REG_SZ, path.data(),
                                   static_cast<DWORD>(path.size()));
        if (stored != ERROR_SUCCESS) {
            const QString text = systemErrorText(stored);
            failure = text.isEmpty() ? FormatString(Str::SyncSetValueFailedCode, static_cast<int>(stored))
                                     : FormatString(Str::SyncSetValueFailedCodeText, static_cast<int>(stored),
                                                    text.toUtf8().constData());
        }
    } else {
        // Written for a desktop that always reads the file; whether it worked does not matter.
        WriteSyncDataFile(answer.output, dataFile);
        stored =
            registry.SetValue(key, SyncTransport::kOutputValue, REG_BINARY, answer.output.data(), outputSize);
        if (stored != ERROR_SUCCESS) {
            const QString text = systemErrorText(stored);
            failure = text.isEmpty() ? FormatString(Str::SyncSetValueFailedCode, static_cast<int>(stored))
                                     : FormatString(Str::SyncSetValueFailedText, text.toUtf8().constData());
        }
    }
    if (stored != ERROR_SUCCESS)
        showBox(failure);
    closeKey(registry, key);
    return stored != ERROR_SUCCESS ? E_FAIL : S_OK;
}

} // namespace talvo
