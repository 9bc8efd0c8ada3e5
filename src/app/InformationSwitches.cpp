#include "app/InformationSwitches.h"

#include "TalvoVersion.h"

#include <cstdio>

namespace talvo {

QString PlayerUsage()
{
    return QStringLiteral(
        R"(Usage: talvoplayer [-File:PATH]
       talvoplayer -GetStorageInfo | -GetAPVersion | -EnumFiles |
                   -GetDeviceManufacturer | -DeleteProgram | -AddProgram
       talvoplayer --help | -h | --version

Plays spoken-word audio programs (.zq, .zqx files).  It remembers where each
program was left and its bookmarks.  When a player is already running, a new
start hands its file to it and brings it to the front instead.

  -File:PATH   open and play the program file PATH (a missing file is ignored)

Desktop-sync switches.  They need no display and open no window.  The first
of them found anywhere on the command line runs (also written with "/");
input is read from the registry value _DataIn and the answer is written to
_Data under HKEY_LOCAL_MACHINE\Software\Talvo (talvoreg shows both).  Each
prints its result as one line 0x%08X on standard output and exits with the
low 8 bits of it: 0 success, 5 failure (0x80004005), 87 a missing argument
(0x80070057), else the low byte of 0x8007xxxx for a system error xxxx.
  -GetStorageInfo         answer: total and free bytes of main memory and of
                          each storage card
  -GetAPVersion           answer: the player's version, 5,5,0,10;0
  -EnumFiles              answer: one 628-byte record per program with its
                          listening position (_DataIn: an optional folder)
  -GetDeviceManufacturer  answer: the device maker's name
  -DeleteProgram          deletes the program file or folder named in
                          _DataIn, through the running player when there is one
  -AddProgram             tells a running player that the file named in
                          _DataIn was copied to the device

Environment:
  TALVOPLAYER_REGISTRY  the settings store (see Files)
  TALVOPLAYER_HOME      main memory: the folder whose size is reported (default $HOME)
  TALVOPLAYER_MUSIC     the Music folder (default: the XDG music folder)
  TALVOPLAYER_CARDS     storage-card folders, colon-separated, instead of the
                        mounted removable volumes under /media and /run/media
  TALVOPLAYER_AUDIO     alsa[:DEVICE] (default), null[:SPEED] or
                        capture:FILE.wav[:SPEED]
  TALVOPLAYER_PLATFORM  PocketPC (default, touch) or Smartphone (keys)
  TALVOPLAYER_SCREEN    the screen size WxH used to choose a skin
  TALVOPLAYER_SCREEN_POWER  a file: the screen is never really switched off;
                        each switch is appended to it as a line "off" or "on".
                        none: a screen that nothing can switch
  TALVOPLAYER_OEM_INFO  the device maker's name
  TALVOPLAYER_MESSAGES  a file: message boxes are appended to it and answered
                        with their default button instead of being shown
  TALVOPLAYER_TRACE     1 shows the trace texts (debug category talvo.trace)
  DISPLAY, WAYLAND_DISPLAY  the display the window opens on (Wayland first)

Files:
  Settings, positions and bookmarks: the store $TALVOPLAYER_REGISTRY, else
    $XDG_CONFIG_HOME/talvoplayer/registry.db (~/.config when XDG_CONFIG_HOME is
    unset), with its last-good copy beside it (registry.db.last-good, taken
    at most once a day at start and at every clean exit).  A damaged store is
    kept aside as registry.db.damaged-DATE and the last-good copy restored.
  Skins (Skins/*.ini), the help page and the welcome texts: the folder of the
    executable when it holds Skins/ (a build tree, a portable install), else
    the installed data folder, PREFIX/share/talvoplayer beside PREFIX/bin.
  Programs: that same folder, the Music folder and two folder levels below it,
    and the top of each storage card with its standard folders.
  Files the player writes (_Data.tmp, details pages and covers): the folder of
    the executable when it is not the installed data folder and may be
    written, else $XDG_DATA_HOME/talvoplayer (~/.local/share/talvoplayer);
    nothing is ever written under an install prefix.

Exit status: 0 when the window was closed; 1 when it could not start (no
display, a settings store that cannot be opened, no skin for the screen).
)");
}

QString VersionLine(const char* program)
{
    return QStringLiteral("%1 %2").arg(QLatin1String(program), QLatin1String(TALVO_VERSION_TEXT));
}

std::optional<int> AnswerInformationSwitch(const QStringList& arguments)
{
    if (arguments.size() != 1)
        return std::nullopt;
    QString text;
    if (arguments[0] == QLatin1String("--help") || arguments[0] == QLatin1String("-h"))
        text = PlayerUsage();
    else if (arguments[0] == QLatin1String("--version"))
        text = VersionLine("talvoplayer") + QLatin1Char('\n');
    else
        return std::nullopt;
    std::fputs(text.toLocal8Bit().constData(), stdout);
    return 0;
}

} // namespace talvo
