#pragma once
// Running one sync command on a device the way the desktop does: write the
// input to "_DataIn", start the player with the switch, then read "_Data" and,
// when it names the data file, the file.  Everything on the device is done by
// its own programs (talvoreg, talvoplayer, cat), run through a command prefix
// such as "ssh phone", or directly when the prefix is empty.
#include "base/CommandLine.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>

namespace talvo::sync {

struct SyncClientOptions {
    // The words that reach the device; the command follows as one shell-quoted word.
    QStringList prefix;
    QString player = QStringLiteral("talvoplayer");
    QString talvoreg = QStringLiteral("talvoreg");
};

struct SyncOutcome {
    // Empty when the command ran; else why it could not be run or read.
    QString error;
    std::uint32_t result = 0;
    QByteArray answer;
};

SyncOutcome RunSyncCommandOnDevice(const SyncClientOptions& options, SyncCommand command,
                                   const std::optional<QString>& input);

// One word for a POSIX shell.
QString ShellQuote(const QString& word);

} // namespace talvo::sync
