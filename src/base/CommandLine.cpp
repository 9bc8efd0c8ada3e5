#include "base/CommandLine.h"

#include "platform/FileNames.h"

#include <array>

namespace talvo {
namespace {

struct SyncSwitch {
    const char16_t* name;
    SyncCommand command;
};

// In the order of the search: the first one found wins.
constexpr std::array<SyncSwitch, 6> kSyncSwitches{{
    {u"GetStorageInfo", SyncCommand::GetStorageInfo},
    {u"GetAPVersion", SyncCommand::GetAPVersion},
    {u"EnumFiles", SyncCommand::EnumFiles},
    {u"GetDeviceManufacturer", SyncCommand::GetDeviceManufacturer},
    {u"DeleteProgram", SyncCommand::DeleteProgram},
    {u"AddProgram", SyncCommand::AddProgram},
}};

// The file switch has only the hyphen form.
constexpr char16_t kFileSwitch[] = u"-File:";

} // namespace

QString JoinCommandLine(const QStringList& arguments)
{
    return arguments.join(QLatin1Char(' '));
}

SyncCommand FindSyncSwitch(const QString& commandLine)
{
    for (const SyncSwitch& option : kSyncSwitches) {
        QString name = QString::fromUtf16(option.name);
        if (commandLine.contains(QLatin1Char('/') + name) || commandLine.contains(QLatin1Char('-') + name))
            return option.command;
    }
    return SyncCommand::None;
}

QString ParseFileArgument(const QStringList& arguments, const std::function<bool(const QString&)>& exists)
{
    const QString fileSwitch = QString::fromUtf16(kFileSwitch);
    for (const QString& argument : arguments) {
        qsizetype at = argument.indexOf(fileSwitch);
        if (at < 0)
            continue;
        QString path = argument.mid(at + fileSwitch.size());
        if (path.startsWith(QLatin1Char('"')))
            path.remove(0, 1);
        qsizetype quote = path.indexOf(QLatin1Char('"'));
        if (quote >= 0)
            path.truncate(quote);
        bool found = exists ? exists(path) : StatusOfPath(path).exists;
        return found ? path : QString();
    }
    return {};
}

} // namespace talvo
