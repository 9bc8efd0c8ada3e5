#pragma once
// The six desktop-sync commands, each a SyncHandler for RunSyncCommand.
#include "base/CommandLine.h"
#include "library/ProgramLibrary.h"
#include "sync/SyncRunner.h"

#include <QString>

namespace talvo {

class SystemInfo;

// What the commands reach: the registry, the device's folders and cards, and
// the running player (found by its window class).
struct SyncEnvironment {
    Registry& registry;
    const StorageCards& cards;
    const SystemInfo& system;
    LibraryFolders folders;
    // Main memory: TALVOPLAYER_HOME or the home folder.
    QString homeFolder;
    QString windowClass;
};

// Room the storage text is built in, terminator included.
inline constexpr std::size_t kStorageInfoBufferSize = 512;
// The OEM text is asked for in 128 bytes: 63 UTF-16 characters and the terminator.
inline constexpr int kOemInfoMaxChars = 63;
inline constexpr QStringView kReservedNameCharacters = u"<>:\"/\\|?{} -";

SyncAnswer GetStorageInfo(const SyncEnvironment& environment);
SyncAnswer GetAPVersion();
SyncAnswer EnumFiles(const SyncEnvironment& environment,
                     const std::optional<std::vector<std::uint8_t>>& input);
SyncAnswer GetDeviceManufacturer(const SyncEnvironment& environment);
SyncAnswer DeleteProgram(const SyncEnvironment& environment,
                         const std::optional<std::vector<std::uint8_t>>& input);
SyncAnswer AddProgram(const SyncEnvironment& environment,
                      const std::optional<std::vector<std::uint8_t>>& input);

// The handler of a command; environment must outlive it.
SyncHandler SyncHandlerFor(SyncCommand command, const SyncEnvironment& environment);

// The manufacturer name with every reserved character made "_".
QString ReplaceReservedCharacters(QString name);

} // namespace talvo
