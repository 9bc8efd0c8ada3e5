#pragma once
// --help, -h and --version of the player: answered before anything else
// starts, with no display, no settings store and no look for a running player.
#include <QStringList>
#include <optional>

namespace talvo {

// The usage text: the command line, the desktop-sync switches, the
// environment overrides and where the player looks for its files.
QString PlayerUsage();

// "talvoplayer 5.5.0.10": the first line of every tool's --version.
QString VersionLine(const char* program);

// When the whole argument list is exactly one of --help, -h or --version,
// prints the answer to standard output and returns the exit status (0).  Any
// other command line returns nothing: the sync switches keep their substring
// search, so "-h" inside a longer line changes nothing.
std::optional<int> AnswerInformationSwitch(const QStringList& arguments);

} // namespace talvo
