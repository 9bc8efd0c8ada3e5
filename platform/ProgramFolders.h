#pragma once
// Where the player's own files are, by one rule (docs/folders.md):
//
// - The program's own folder, read-only program data (skins, the help page,
//   the welcome texts): the executable's folder when it holds "Skins/" (a
//   build tree, a portable install), else the installed data folder,
//   <prefix>/share/talvoplayer beside <prefix>/bin.
// - Files the player writes (the sync data file, a program's details page and
//   cover picture): the program's own folder when it is not the installed data
//   folder and this process may create files there; otherwise the user's data
//   folder.  So nothing is ever written under an install prefix, not even by
//   a process that has the rights to.
#include <QString>

namespace talvo {

// The installed data folder of an executable in executableFolder.
QString InstalledDataFolder(const QString& executableFolder);
QString InstalledDataFolder();

QString ProgramFolder(const QString& executableFolder);
// For the running executable.
QString ProgramFolder();

// The Music folder, where listeners' programs live two folders deep
// (Music/Author/Title/): TALVOPLAYER_MUSIC when set, else the XDG music folder.
QString MusicFolder();

// $XDG_DATA_HOME/talvoplayer (an absolute XDG_DATA_HOME only), else
// ~/.local/share/talvoplayer.
QString PlayerDataFolder();

// $XDG_CACHE_HOME/talvoplayer (an absolute XDG_CACHE_HOME only), else
// ~/.cache/talvoplayer: what may be lost at any time and made again.
QString PlayerCacheFolder();

// programFolder when files may be written there (see above); otherwise
// dataFolder, created (with its parents) when missing.  A missing program
// folder, or a path that is not a folder, counts as not writable.  When the
// data folder cannot be created its path is returned all the same, so that
// the write that follows fails with the system's reason.
QString ProgramWriteFolder(const QString& programFolder, const QString& dataFolder);

inline QString ProgramWriteFolder(const QString& programFolder)
{
    return ProgramWriteFolder(programFolder, PlayerDataFolder());
}

} // namespace talvo
