// feldrun: the listener's side of getting programs: `feldrun import` brings
// audio books in; with no command it opens its window.
#include "ImportCommand.h"
#include "SubscriptionCommands.h"
#include "TalvoVersion.h"
#include "UpdateCommand.h"
#include "UpdateTimer.h"
#include "window/RunWindow.h"

#include <QCoreApplication>
#include <QDir>

#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr int kExitUsage = 2;

const char* const kUsage = "usage: feldrun [COMMAND [options]]\n"
                           "\n"
                           "Brings programs to the TalvoPlayer Music folder. Without a command it opens\n"
                           "its window.\n"
                           "\n"
                           "Commands:\n"
                           "  import PATH...  make programs of audio books (files or folders); see\n"
                           "                  feldrun import --help\n"
                           "  subscribe URL   subscribe to a podcast's or programme's feed\n"
                           "  unsubscribe URL|TITLE\n"
                           "                  end a subscription (its episodes on the device stay)\n"
                           "  list            the subscriptions and their episodes\n"
                           "  keep URL|TITLE N\n"
                           "                  keep a subscription's newest N episodes (default 3)\n"
                           "  opml import|export FILE\n"
                           "                  subscribe to the feeds of an OPML file, or write one\n"
                           "  update [TITLE]  bring in new episodes, remove the oldest\n"
                           "  Each command's --help tells more.\n"
                           "\n"
                           "  --install-timer [daily|weekly|HH:MM]\n"
                           "                  update the subscriptions automatically (a systemd user\n"
                           "                  timer; daily when no time is given)\n"
                           "  --remove-timer  stop updating automatically\n"
                           "  -h, --help      this text\n"
                           "  --version       the version of feldrun\n";

struct Subcommand {
    const char* name;
    int (*run)(const std::vector<std::string>& args, const std::string& playerPath);
};
constexpr Subcommand kSubcommands[] = {
    {"import", feldrun::RunImportCommand},
    {"subscribe", feldrun::RunSubscribeCommand},
    {"unsubscribe", feldrun::RunUnsubscribeCommand},
    {"list", feldrun::RunListCommand},
    {"keep", feldrun::RunKeepCommand},
    {"opml", feldrun::RunOpmlCommand},
    {"update", feldrun::RunUpdateCommand},
    {"--install-timer", feldrun::RunInstallTimerCommand},
    {"--remove-timer", feldrun::RunRemoveTimerCommand},
};

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty())
        return feldrun::RunWindow(argc, argv);
    if (args[0] == "-h" || args[0] == "--help") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (args[0] == "--version") {
        std::puts("feldrun " TALVO_VERSION_TEXT);
        return 0;
    }
    QCoreApplication app(argc, argv);
    // The player that is told of new programs is the one installed beside feldrun.
    const std::string player =
        QDir(QCoreApplication::applicationDirPath()).filePath("talvoplayer").toStdString();
    for (const Subcommand& s : kSubcommands)
        if (args[0] == s.name)
            return s.run({args.begin() + 1, args.end()}, player);
    std::fprintf(stderr, "feldrun: unknown command '%s'\n%s", args[0].c_str(), kUsage);
    return kExitUsage;
}
