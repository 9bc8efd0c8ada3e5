#include "sync/SyncCommands.h"

#include "TalvoVersion.h"
#include "base/CommandIds.h"
#include "base/DetectPlatform.h"
#include "base/StringTable.h"
#include "library/ProgramRecordLayout.h"
#include "library/ProgramStateStore.h"
#include "platform/FileNames.h"
#include "platform/InstanceChannel.h"
#include "platform/MessageBox.h"
#include "platform/SystemError.h"
#include "platform/SystemInfo.h"
#include "sync/SyncInput.h"
#include "sync/SyncProgramRecord.h"

#include <string>

namespace talvo {
namespace {

std::vector<std::uint8_t> utf16WithTerminator(const QString& text)
{
    const std::vector<std::uint8_t> bytes = RegSzBytes(text.toStdU16String());
    return bytes;
}

QByteArray copyDataPayload(const QString& path)
{
    const std::vector<std::uint8_t> bytes = utf16WithTerminator(path);
    return QByteArray(reinterpret_cast<const char*>(bytes.data()), static_cast<qsizetype>(bytes.size()));
}

// Only the low 32 bits, as a signed number: the desktop has always parsed the
// wrapped value of volumes above 2 GB, so it stays wrapped.
int low32(std::uint64_t count)
{
    return static_cast<int>(static_cast<std::uint32_t>(count & 0xFFFFFFFFu));
}

// Appends a part only when it fits whole, leaving room for the terminator, so
// a cut text still parses as complete parts.
void appendPart(std::string& text, const QString& part)
{
    const QByteArray bytes = part.toLocal8Bit();
    if (text.size() + static_cast<std::size_t>(bytes.size()) < kStorageInfoBufferSize)
        text.append(bytes.constData(), static_cast<std::size_t>(bytes.size()));
}

std::vector<std::uint8_t> bytesWithTerminator(const std::string& text)
{
    std::vector<std::uint8_t> bytes(text.begin(), text.end());
    bytes.push_back(0);
    return bytes;
}

} // namespace

QString ReplaceReservedCharacters(QString name)
{
    for (qsizetype i = 0; i < name.size(); ++i) {
        if (kReservedNameCharacters.contains(name.at(i)))
            name[i] = QLatin1Char('_');
    }
    return name;
}

SyncAnswer GetStorageInfo(const SyncEnvironment& environment)
{
    std::string text;
    StorageSpace store;
    GetStorageSpace(environment.homeFolder, &store);
    appendPart(text, QString::asprintf("\\|%d|%d|", low32(store.totalBytes), low32(store.freeBytes)));
    for (const StorageCard& card : environment.cards.Enumerate()) {
        if (card.name.isEmpty())
            continue;
        StorageSpace space;
        GetStorageSpace(card.root, &space);
        appendPart(text, QStringLiteral("\\") + card.name +
                             QString::asprintf("|%d|%d|", low32(space.totalBytes), low32(space.freeBytes)));
    }
    return {S_OK, bytesWithTerminator(text)};
}

SyncAnswer GetAPVersion()
{
    QString text = QString::asprintf("%d,%d,%d,%d", TALVO_VERSION_MAJOR, TALVO_VERSION_MINOR,
                                     TALVO_VERSION_PATCH, TALVO_VERSION_BUILD);
    text += DetectPlatform() == 1 ? QStringLiteral(";1") : QStringLiteral(";0");
    return {S_OK, utf16WithTerminator(text)};
}

SyncAnswer EnumFiles(const SyncEnvironment& environment,
                     const std::optional<std::vector<std::uint8_t>>& input)
{
    const std::optional<QString> folder = SyncPathFromInput(input);
    ProgramStateStore store(environment.registry);
    ProgramLibrary library(environment.registry, store, environment.cards, environment.folders);
    if (!library.ScanForSync(folder)) {
        ShowMessageBox(nullptr, LoadString(Str::InitFromFolderFailed), LoadString(Str::EnumFilesCaption),
                       MB_OK);
        return {E_FAIL, {}};
    }
    SyncAnswer answer;
    for (std::int32_t i = 0; i < library.Count(); ++i) {
        const ProgramFile& entry = library.At(i);
        // Every entry the scan found is listable; a folder keeps only its own.
        if (folder && !entry.path.startsWith(*folder))
            continue;
        DWORD positionMs = 0;
        store.ReadPlayPosition(entry.Key(), &positionMs);
        const auto position = static_cast<std::int32_t>(
            ProgramRecord::SyncPositionSeconds(positionMs, entry.durationMs / 1000));
        const SyncRecordBytes record = MakeSyncRecord(entry, position);
        answer.output.insert(answer.output.end(), record.begin(), record.end());
    }
    return answer;
}

SyncAnswer GetDeviceManufacturer(const SyncEnvironment& environment)
{
    QString name = QStringLiteral("Unknown");
    if (const std::optional<std::u16string> oem = environment.system.OemInfo())
        name = QString::fromStdU16String(*oem).left(kOemInfoMaxChars);
    return {S_OK, utf16WithTerminator(ReplaceReservedCharacters(name))};
}

SyncAnswer DeleteProgram(const SyncEnvironment& environment,
                         const std::optional<std::vector<std::uint8_t>>& input)
{
    const std::optional<QString> path = SyncPathFromInput(input);
    InstanceClient running;
    if (running.Connect(environment.windowClass)) {
        running.Send(InstanceRequest::CopyData, Message::SyncDeleteProgram,
                     path ? copyDataPayload(*path) : QByteArray());
        return {S_OK, {}};
    }
    const PathStatus status = path ? StatusOfPath(*path) : PathStatus{};
    // A missing path goes the folder way, as it always has.
    if (status.exists && !status.isFolder) {
        const SystemError error = DeleteFileOnly(*path);
        if (error.code == ERROR_SUCCESS)
            return {S_OK, {}};
        const QByteArray name = DisplayFileName(*path).toUtf8();
        const QByteArray reason = error.text.toUtf8();
        ShowMessageBox(nullptr, FormatString(Str::DeleteFileFailed, name.constData(), reason.constData()),
                       LoadString(Str::ErrorCaption), kErrorBoxStyle);
        return {HResultFromError(error.code), {}};
    }
    ProgramStateStore store(environment.registry);
    ProgramLibrary library(environment.registry, store, environment.cards, environment.folders);
    const bool scanned = library.ScanForSync(path);
    const bool deleted = library.DeletePrograms(path);
    return {scanned && deleted ? S_OK : E_FAIL, {}};
}

SyncAnswer AddProgram(const SyncEnvironment& environment,
                      const std::optional<std::vector<std::uint8_t>>& input)
{
    InstanceClient running;
    if (!running.Connect(environment.windowClass))
        return {S_OK, {}};
    if (!input)
        return {E_INVALIDARG, {}};
    running.Send(InstanceRequest::CopyData, Message::SyncAddProgram, AddProgramPayload(*input));
    return {S_OK, {}};
}

SyncHandler SyncHandlerFor(SyncCommand command, const SyncEnvironment& environment)
{
    const SyncEnvironment* env = &environment;
    switch (command) {
    case SyncCommand::GetStorageInfo:
        return [env](const auto&) {
            return GetStorageInfo(*env);
        };
    case SyncCommand::GetAPVersion:
        return [](const auto&) {
            return GetAPVersion();
        };
    case SyncCommand::EnumFiles:
        return [env](const auto& input) {
            return EnumFiles(*env, input);
        };
    case SyncCommand::GetDeviceManufacturer:
        return [env](const auto&) {
            return GetDeviceManufacturer(*env);
        };
    case SyncCommand::DeleteProgram:
        return [env](const auto& input) {
            return DeleteProgram(*env, input);
        };
    case SyncCommand::AddProgram:
        return [env](const auto& input) {
            return AddProgram(*env, input);
        };
    case SyncCommand::None:
        break;
    }
    return [](const auto&) {
        return SyncAnswer{E_FAIL, {}};
    };
}

} // namespace talvo
