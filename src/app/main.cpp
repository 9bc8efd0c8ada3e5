// The player's entry point: everything lives in the talvo library.
#include "app/Startup.h"
#include "base/CommandLine.h"

#include <QApplication>

namespace {

// A desktop tool starts sync commands over a remote shell, where there is no
// display and Qt would abort: they run on the offscreen platform then, and
// their error boxes, which nobody could answer, go to standard error.
void prepareHeadlessSyncCommand(int argc, char** argv)
{
    if (qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY") ||
        qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        return;
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    if (talvo::FindSyncSwitch(talvo::JoinCommandLine(arguments)) == talvo::SyncCommand::None)
        return;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    if (!qEnvironmentVariableIsSet("TALVOPLAYER_MESSAGES"))
        qputenv("TALVOPLAYER_MESSAGES", "/dev/stderr");
}

} // namespace

int main(int argc, char** argv)
{
    prepareHeadlessSyncCommand(argc, argv);
    QApplication app(argc, argv);
    QStringList arguments = QCoreApplication::arguments();
    arguments.removeFirst();
    return talvo::RunPlayer(arguments);
}
