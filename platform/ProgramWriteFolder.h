#pragma once
// Where the player writes the files it keeps in its own folder (the sync data
// file, a program's details page and cover picture).  Beside the executable
// only when this process may create files there (a build tree, a portable
// install); otherwise in the player's data folder, because nothing may be
// written under an install prefix and every write there would only fail.
#include <QString>

namespace talvo {

// $XDG_DATA_HOME/talvoplayer (an absolute XDG_DATA_HOME only), else
// ~/.local/share/talvoplayer.
QString PlayerDataFolder();

// executableFolder when this process may create files in it; otherwise
// dataFolder, created (with its parents) when missing.  A missing executable
// folder, or a path that is not a folder, counts as not writable.  When the
// data folder cannot be created its path is returned all the same, so that
// the write that follows fails with the system's reason.
QString ProgramWriteFolder(const QString& executableFolder, const QString& dataFolder);

inline QString ProgramWriteFolder(const QString& executableFolder)
{
    return ProgramWriteFolder(executableFolder, PlayerDataFolder());
}

} // namespace talvo
