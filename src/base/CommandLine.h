#pragma once
// Reading the command line: the desktop-sync switches and the -File: argument.
#include <QString>
#include <QStringList>
#include <functional>

namespace talvo {

enum class SyncCommand {
    None,
    GetStorageInfo,
    GetAPVersion,
    EnumFiles,
    GetDeviceManufacturer,
    DeleteProgram,
    AddProgram,
};

// The command line as the original platform handed it over: the arguments
// after the executable's name, joined by single blanks.
QString JoinCommandLine(const QStringList& arguments);

// The first sync command found in the command line.  The search is a
// case-sensitive substring search, deliberately without word boundaries; the
// commands are tried in a fixed order and for each the "/" form before the "-"
// form, so a line holding two commands runs the earlier one of that order.
SyncCommand FindSyncSwitch(const QString& commandLine);

// The file named by -File: in the arguments, or an empty string when there is
// none or it does not exist.  The shell has already removed the quotes, so the
// path is taken from the argument that holds the switch: everything after
// "-File:", less an opening quote and anything from a closing quote on.
QString ParseFileArgument(const QStringList& arguments,
                          const std::function<bool(const QString&)>& exists = nullptr);

} // namespace talvo
