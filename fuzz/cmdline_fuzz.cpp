// Fuzz target over the desktop-sync switches and the -File: argument: the
// input is the argument list, one argument per NUL-separated piece, read as
// the system hands over arguments.  Traps on a switch found that the command
// line does not hold, and on a file path that is not part of an argument.

#include "base/CommandLine.h"

#include <QStringList>
#include <cstdint>

namespace {

constexpr const char16_t* kSwitchNames[] = {nullptr,      u"GetStorageInfo",        u"GetAPVersion",
                                            u"EnumFiles", u"GetDeviceManufacturer", u"DeleteProgram",
                                            u"AddProgram"};

QStringList Arguments(const uint8_t* data, size_t size)
{
    QStringList arguments;
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    for (const QByteArray& piece : bytes.split('\0'))
        arguments.append(QString::fromLocal8Bit(piece));
    return arguments;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QStringList arguments = Arguments(data, size);
    const QString line = talvo::JoinCommandLine(arguments);
    const talvo::SyncCommand command = talvo::FindSyncSwitch(line);
    if (const char16_t* name = kSwitchNames[static_cast<int>(command)]) {
        if (!line.contains(QString::fromUtf16(name)))
            __builtin_trap();
    }
    const QString path = talvo::ParseFileArgument(arguments, [](const QString&) { return true; });
    if (path.contains(QLatin1Char('"')))
        __builtin_trap();
    bool inAnArgument = path.isEmpty();
    for (const QString& argument : arguments)
        inAnArgument = inAnArgument || argument.contains(path);
    if (!inAnArgument)
        __builtin_trap();
    return 0;
}
