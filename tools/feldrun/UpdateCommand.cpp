#include "UpdateCommand.h"

#include "FeedUpdater.h"
#include "SubscriptionCommands.h"
#include "platform/ProgramFolders.h"
#include "zqxauthor/ProgressBar.h"

#include <QEventLoop>
#include <QTimer>

#include <unistd.h>

#include <cstdio>

namespace feldrun {

const char* const kUpdateUsage =
    "usage: feldrun update [options] [TITLE|URL]\n"
    "\n"
    "Brings every subscription up to date, or the one named: fetches its feed (one\n"
    "conditional request when nothing changed), downloads the newest episodes not yet\n"
    "here (a broken download resumes where it stopped), makes each a program in\n"
    "Music/Programme/Date Episode/, tells a running player, and removes episodes older\n"
    "than the newest few through the player (never the one it has open).\n"
    "\n"
    "  -q, --quiet   no progress and no list of new episodes; failures are still told\n"
    "  -h, --help    this text\n"
    "\n"
    "Environment: TALVOPLAYER_MUSIC, the Music folder; FELDRUN_TIMEOUT_MS, how long a\n"
    "server may send nothing before an attempt is given up (default 30000).\n"
    "Exit status: 0 when everything came in, 1 when a feed or an episode could not be\n"
    "(each is printed), 2 for a wrong command line.\n";

namespace {

// What a listener on a terminal sees: a bar while an episode downloads, and a
// line for each episode that came in.
void ShowProgress(FeedUpdater& updater, talvo::Registry& registry, zqxauthor::ProgressBar& bar)
{
    QObject::connect(&updater, &FeedUpdater::episodeProgress, &updater,
                     [&bar](const QUrl&, const QString&, qint64 received, qint64 total) {
                         if (total > 0)
                             bar.Show(double(received) / double(total));
                     });
    QObject::connect(
        &updater, &FeedUpdater::episodeStateChanged, &updater,
        [&registry, &bar](const QUrl& url, const QString& guid, EpisodeState state, const QString&) {
            if (state != EpisodeState::Ready)
                return;
            bar.End();
            const auto subscription = SubscriptionStore(registry).Find(url.toString());
            for (const EpisodeRecord& r :
                 subscription ? subscription->episodes : std::vector<EpisodeRecord>{})
                if (r.guid == guid)
                    std::printf("%s: %s -> %s\n", subscription->title.toUtf8().constData(),
                                r.title.toUtf8().constData(), r.programPath.toUtf8().constData());
        });
}

} // namespace

int UpdateSubscriptions(talvo::Registry& registry, const QString& which, const std::string& playerPath,
                        bool quiet, const char* command)
{
    const QString music = talvo::MusicFolder();
    if (music.isEmpty()) {
        std::fprintf(stderr, "feldrun %s: there is no Music folder (set TALVOPLAYER_MUSIC)\n", command);
        return kExitFailed;
    }
    FeedUpdater updater(registry, {music, QString::fromStdString(playerPath), 0});
    const auto tell = [command](const QUrl&, const QString& text) {
        std::fprintf(stderr, "feldrun %s: %s\n", command, text.toUtf8().constData());
    };
    QObject::connect(&updater, &FeedUpdater::subscriptionFailed, &updater, tell);
    QObject::connect(&updater, &FeedUpdater::subscriptionWarning, &updater, tell);
    zqxauthor::ProgressBar bar;
    QObject::connect(&updater, &FeedUpdater::episodeStateChanged, &updater,
                     [&bar, command](const QUrl&, const QString&, EpisodeState state, const QString& error) {
                         if (state != EpisodeState::Failed)
                             return;
                         bar.End();
                         std::fprintf(stderr, "feldrun %s: %s\n", command, error.toUtf8().constData());
                     });
    if (!quiet && isatty(STDOUT_FILENO))
        ShowProgress(updater, registry, bar);
    QEventLoop loop;
    QObject::connect(&updater, &FeedUpdater::finished, &loop,
                     [&loop](int failures) { loop.exit(failures > 0 ? kExitFailed : kExitDone); });
    QTimer::singleShot(0, &updater, [&] { updater.Update(which); });
    const int exitStatus = loop.exec();
    bar.End();
    return exitStatus;
}

int RunUpdateCommand(const std::vector<std::string>& args, const std::string& playerPath)
{
    bool quiet = false;
    QString which;
    for (const std::string& a : args) {
        if (a == "-h" || a == "--help") {
            std::fputs(kUpdateUsage, stdout);
            return kExitDone;
        }
        if (a == "-q" || a == "--quiet") {
            quiet = true;
        } else if ((a.size() > 1 && a[0] == '-') || !which.isEmpty()) {
            std::fprintf(stderr, "feldrun update: unexpected '%s'\n%s", a.c_str(), kUpdateUsage);
            return kExitUsage;
        } else {
            which = QString::fromLocal8Bit(a);
        }
    }
    const auto registry = OpenSettingsStore("update");
    if (!registry)
        return kExitFailed;
    return UpdateSubscriptions(*registry, which, playerPath, quiet, "update");
}

} // namespace feldrun
