#include "app/DisplayChoice.h"

#include "base/CommandLine.h"
#include "platform/DisplayServer.h"

#include <cstdio>

namespace talvo {
namespace {

// What was asked for and did not answer, for the one line that says so.
QString UnreachableDisplays()
{
    QStringList named;
    for (const char* variable : {"WAYLAND_DISPLAY", "DISPLAY"}) {
        if (!qEnvironmentVariableIsEmpty(variable))
            named << QStringLiteral("%1=%2").arg(QLatin1String(variable), qEnvironmentVariable(variable));
    }
    return named.join(QLatin1String(" and "));
}

void SayThereIsNoDisplay()
{
    const QString unreachable = UnreachableDisplays();
    const QString what = unreachable.isEmpty()
                             ? QStringLiteral("no display is set")
                             : QStringLiteral("the display (%1) does not answer").arg(unreachable);
    const QString line =
        QStringLiteral("talvoplayer: cannot open the window: %1; start it in a desktop session, or set "
                       "WAYLAND_DISPLAY or DISPLAY (xvfb-run gives a virtual one); the sync switches "
                       "such as -EnumFiles work without a display\n")
            .arg(what);
    std::fputs(line.toLocal8Bit().constData(), stderr);
}

} // namespace

bool ChooseDisplayPlatform(const QStringList& arguments)
{
    if (qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        return true;
    // Wayland first: a desktop that offers both runs X11 clients through a
    // translation layer, which cannot give the player's window keys and boxes
    // as natively.  xcb stays the fallback when the Wayland plugin is missing.
    if (WaylandDisplayAnswers()) {
        qputenv("QT_QPA_PLATFORM", "wayland;xcb");
        return true;
    }
    if (X11DisplayAnswers()) {
        qputenv("QT_QPA_PLATFORM", "xcb");
        return true;
    }
    // A desktop tool starts the sync switches over a remote shell, where
    // nobody could answer a box.
    if (FindSyncSwitch(JoinCommandLine(arguments)) != SyncCommand::None) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        if (!qEnvironmentVariableIsSet("TALVOPLAYER_MESSAGES"))
            qputenv("TALVOPLAYER_MESSAGES", "/dev/stderr");
        return true;
    }
    SayThereIsNoDisplay();
    return false;
}

} // namespace talvo
