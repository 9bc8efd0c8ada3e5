// talvosync: runs one desktop-sync command on a device and prints its answer.
#include "SyncAnswerText.h"
#include "SyncClient.h"
#include "platform/FileNames.h"

#include "TalvoVersion.h"

#include <QCoreApplication>
#include <cstdio>

namespace {

constexpr const char* kUsage =
    R"(Usage: talvosync [--via PREFIX] [--player PATH] [--talvoreg PATH] COMMAND [PATH]

Runs one sync command of the player and prints its answer.  COMMAND is one of
GetStorageInfo, GetAPVersion, EnumFiles, GetDeviceManufacturer, DeleteProgram,
AddProgram (a leading "-" or "/" is allowed).  PATH is the input of EnumFiles
(a folder), DeleteProgram (a file or folder) and AddProgram (the new file).

  --via PREFIX      run everything on the device through PREFIX, split at
                    blanks (for example "ssh phone"); locally without it
  --player PATH     the player on the device (default: talvoplayer)
  --talvoreg PATH   the registry tool on the device (default: talvoreg)
  --help            this text
  --version         the version of talvosync

Exit status: 0 when the command succeeded, 1 when it failed, 2 on bad usage or
when the device could not be reached.
)";

int usage()
{
    std::fputs(kUsage, stderr);
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    // Paths are bytes; arguments() would lose those of a name that is not UTF-8.
    QStringList arguments = talvo::DecodeArguments(argc - 1, argv + 1);
    talvo::sync::SyncClientOptions options;
    talvo::SyncCommand command = talvo::SyncCommand::None;
    std::optional<QString> input;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        if (argument == QLatin1String("--help")) {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (argument == QLatin1String("--version")) {
            std::puts("talvosync " TALVO_VERSION_TEXT);
            return 0;
        }
        if (argument == QLatin1String("--via") && hasValue)
            options.prefix = arguments[++i].split(QLatin1Char(' '), Qt::SkipEmptyParts);
        else if (argument == QLatin1String("--player") && hasValue)
            options.player = arguments[++i];
        else if (argument == QLatin1String("--talvoreg") && hasValue)
            options.talvoreg = arguments[++i];
        else if (command == talvo::SyncCommand::None)
            command = talvo::sync::SyncCommandNamed(argument);
        else if (!input)
            input = argument;
        else
            return usage();
        if (command == talvo::SyncCommand::None && !argument.startsWith(QLatin1String("--")))
            return usage();
    }
    if (command == talvo::SyncCommand::None)
        return usage();

    const talvo::sync::SyncOutcome outcome = talvo::sync::RunSyncCommandOnDevice(options, command, input);
    if (!outcome.error.isEmpty()) {
        std::fprintf(stderr, "talvosync: %s\n", outcome.error.toLocal8Bit().constData());
        return 2;
    }
    for (const QString& line : talvo::sync::DescribeAnswer(command, outcome.answer))
        std::printf("%s\n", talvo::EncodeFileName(line).constData());
    if (outcome.result != 0) {
        std::fprintf(stderr, "talvosync: %s\n",
                     talvo::sync::DescribeResult(outcome.result).toLocal8Bit().constData());
        return 1;
    }
    return 0;
}
