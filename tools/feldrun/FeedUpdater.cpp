#include "FeedUpdater.h"

#include "BookImporter.h"
#include "HttpFetcher.h"
#include "ListenedCheck.h"
#include "SyncClient.h"
#include "device/MprisNames.h"
#include "platform/EventQueueHandOff.h"
#include "platform/FileNames.h"
#include "platform/ProgramFolders.h"
#include "settings/SettingsStore.h"

#include <QCryptographicHash>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDir>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QHash>
#include <QLocale>
#include <QThread>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <filesystem>
#include <memory>

namespace fs = std::filesystem;

namespace feldrun {
namespace {

// Every report reaches the window on another thread.
template <typename... Args, typename... Values>
void Tell(FeedUpdater& updater, void (FeedUpdater::*report)(Args...), const Values&... values)
{
    talvo::HandOffThroughEventQueue([&] { (updater.*report)(values...); });
}

// Records kept per subscription: as many as a subscription may keep on the
// device, besides those still there; a feed of 10,000 items would otherwise
// make every save rewrite 10,000 records.
constexpr std::size_t kEpisodesRemembered = kMaxKeep;
// Of a program id: the programme's part, leaving room for the episode's hash.
constexpr int kProgrammeIdChars = 60;
constexpr int kEpisodeHashHexChars = 12;
// How long a running player is given to delete a program it was asked to.
constexpr int kDeleteWaitSteps = 60;
constexpr int kDeleteWaitStepMs = 50;
// How long a running player is given to say which program it has open.
constexpr int kPlayerAnswerMs = 2000;

std::string Bytes(const QString& path)
{
    return talvo::EncodeFileName(path).toStdString();
}

// The program the running player has open, as its media-player interface
// names it (mpris:trackid); empty when no player answers.  "Last Program"
// alone does not tell it: the player records a program there only once it
// has a place stored for it, so one opened for the first time is not there.
QString TrackOpenInPlayer()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    const QString service = QString::fromLatin1(talvo::kMprisBusName);
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(service))
        return {};
    QDBusMessage call = QDBusMessage::createMethodCall(service, QStringLiteral("/org/mpris/MediaPlayer2"),
                                                       QStringLiteral("org.freedesktop.DBus.Properties"),
                                                       QStringLiteral("Get"));
    call << QStringLiteral("org.mpris.MediaPlayer2.Player") << QStringLiteral("Metadata");
    const QDBusMessage answer = bus.call(call, QDBus::Block, kPlayerAnswerMs);
    if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().isEmpty())
        return {};
    const QVariant metadata = answer.arguments().first().value<QDBusVariant>().variant();
    return qdbus_cast<QVariantMap>(metadata)
        .value(QStringLiteral("mpris:trackid"))
        .value<QDBusObjectPath>()
        .path();
}

// Whether track names the episode's program.  The player's key for a
// program is its id, with "_zqx" for an Opus program; both are tried, since
// the record does not keep the type it was packed with.
bool IsTrackOf(const QString& track, const EpisodeRecord& record)
{
    return !track.isEmpty() && !record.programId.isEmpty() &&
           (track == talvo::MprisTrackId(record.programId) ||
            track == talvo::MprisTrackId(record.programId + QStringLiteral("_zqx")));
}

QString HashHex(const QString& text, int chars)
{
    return QString::fromLatin1(
        QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Sha1).toHex().left(chars));
}

// Stable for the episode whatever else changes (the feed's address, the
// programme's title), so positions stored under it stay the episode's.
QString ProgramIdFor(const QString& programme, const QString& guid)
{
    QString slug;
    for (const QChar c : programme.toLower()) {
        if (c.isLetterOrNumber())
            slug += c;
        else if (!slug.isEmpty() && !slug.endsWith(QLatin1Char('-')))
            slug += QLatin1Char('-');
    }
    slug = slug.left(kProgrammeIdChars);
    if (!slug.isEmpty() && !slug.endsWith(QLatin1Char('-')))
        slug += QLatin1Char('-');
    return slug + HashHex(guid, kEpisodeHashHexChars);
}

// "2026-11-24 Morning Edition": a daily programme's episodes often share a
// title, and dated names list in order in any file manager.
QString EpisodeNameFor(const FeedEpisode& episode)
{
    const QString title = episode.title.isEmpty() ? QStringLiteral("Episode") : episode.title;
    if (!episode.published.isValid())
        return title;
    return episode.published.toLocalTime().date().toString(Qt::ISODate) + QLatin1Char(' ') + title;
}

QString DescriptionFor(const FeedEpisode& episode)
{
    if (!episode.published.isValid())
        return episode.description;
    const QString date =
        QLocale::c().toString(episode.published.toLocalTime().date(), QStringLiteral("d MMMM yyyy"));
    return episode.description.isEmpty() ? date : date + QLatin1Char('\n') + episode.description;
}

// Newest first: by date, undated ones after the dated, each kind in the feed's order.
std::vector<const FeedEpisode*> NewestFirst(const Feed& feed)
{
    std::vector<const FeedEpisode*> order;
    for (const FeedEpisode& e : feed.episodes)
        order.push_back(&e);
    std::stable_sort(order.begin(), order.end(), [](const FeedEpisode* a, const FeedEpisode* b) {
        if (a->published.isValid() != b->published.isValid())
            return a->published.isValid();
        return a->published.isValid() && a->published > b->published;
    });
    return order;
}

// Brings the records in line with the feed: new episodes as New, known ones
// keeping their state, newest first; records that fell out of the feed stay
// while their program is on the device.
void MergeEpisodes(Subscription& subscription, const Feed& feed)
{
    QHash<QString, EpisodeRecord> known;
    for (EpisodeRecord& r : subscription.episodes)
        known.insert(r.guid, std::move(r));
    std::vector<EpisodeRecord> merged;
    for (const FeedEpisode* e : NewestFirst(feed)) {
        if (merged.size() >= kEpisodesRemembered)
            break;
        auto it = known.find(e->guid);
        EpisodeRecord record = it != known.end() ? std::move(*it) : EpisodeRecord{};
        if (it != known.end())
            known.erase(it);
        else if (std::any_of(merged.begin(), merged.end(), [&](const auto& m) { return m.guid == e->guid; }))
            continue;
        record.guid = e->guid;
        record.title = e->title;
        record.published = e->published;
        record.enclosureUrl = e->enclosureUrl;
        merged.push_back(std::move(record));
    }
    for (EpisodeRecord& r : known)
        if (!r.programPath.isEmpty())
            merged.push_back(std::move(r));
    subscription.episodes = std::move(merged);
}

bool NeedsDownload(const EpisodeRecord& r)
{
    return r.state == EpisodeState::New || r.state == EpisodeState::Failed ||
           r.state == EpisodeState::Downloading;
}

std::string FolderOf(const QString& path)
{
    return Bytes(QFileInfo(path).path());
}

} // namespace

// One pass over the subscriptions, one at a time: feed, then each episode
// to bring in (chapters, picture, audio, packing), then pruning.
class FeedUpdater::Run : public QObject {
public:
    Run(FeedUpdater& updater, std::vector<Subscription> subscriptions)
        : QObject(&updater), updater_(updater), queue_(std::move(subscriptions))
    {
        downloads_ = talvo::PlayerCacheFolder() + QStringLiteral("/feldrun");
    }

    void Start() { NextSubscription(); }

private:
    struct PackOutcome {
        bool ok = false;
        QString error;
        ImportResult result;
    };

    void NextSubscription()
    {
        if (next_ >= queue_.size())
            return updater_.Finish(failures_);
        current_ = queue_[next_++];
        feed_ = Feed{};
        // Every episode that should be here and is not: the feed is needed
        // whole, since a 304 gives nothing to fetch them with.
        const auto kept = current_.episodes.begin() +
                          std::ptrdiff_t(std::min<std::size_t>(current_.keep, current_.episodes.size()));
        const bool complete = std::none_of(current_.episodes.begin(), kept, NeedsDownload);
        fetcher_.FetchDocument(current_.url, complete ? current_.etag : QString(),
                               complete ? current_.lastModified : QString(),
                               [this](const DocumentFetch& fetched) { FeedFetched(fetched); });
    }

    void FeedFetched(const DocumentFetch& fetched)
    {
        if (!fetched.error.isEmpty())
            return FeedFailed(fetched.error);
        if (fetched.unchanged)
            return Prune();
        QString error;
        if (!ParseFeed(fetched.body, fetched.url, feed_, error))
            return FeedFailed(current_.url.toDisplayString() + QStringLiteral(": ") + error);
        // The store keeps writing under the subscription's first key.
        if (!fetched.permanentUrl.isEmpty())
            current_.url = fetched.permanentUrl;
        current_.etag = fetched.etag;
        current_.lastModified = fetched.lastModified;
        if (!feed_.title.isEmpty())
            current_.title = feed_.title;
        current_.author = feed_.author;
        current_.imageUrl = feed_.imageUrl;
        for (const QString& warning : feed_.warnings)
            Tell(updater_, &FeedUpdater::subscriptionWarning, current_.url,
                 current_.title + QStringLiteral(": ") + warning);
        MergeEpisodes(current_, feed_);
        Save();
        Tell(updater_, &FeedUpdater::subscriptionUpdated, current_.url);
        episode_ = 0;
        NextEpisode();
    }

    void FeedFailed(const QString& error)
    {
        ++failures_;
        Tell(updater_, &FeedUpdater::subscriptionFailed, current_.url, error);
        NextSubscription();
    }

    void NextEpisode()
    {
        const std::size_t wanted = std::min<std::size_t>(current_.keep, current_.episodes.size());
        while (episode_ < wanted && !NeedsDownload(current_.episodes[episode_]))
            ++episode_;
        if (episode_ >= wanted)
            return Prune();
        const EpisodeRecord& record = current_.episodes[episode_];
        const auto it = std::find_if(feed_.episodes.begin(), feed_.episodes.end(),
                                     [&](const FeedEpisode& e) { return e.guid == record.guid; });
        if (it == feed_.episodes.end()) {
            ++episode_;
            return NextEpisode();
        }
        item_ = *it;
        input_ = EpisodeInput{};
        SetState(EpisodeState::Downloading, {});
        FetchChapters();
    }

    // The feed's chapter list, when it has one; the file's own otherwise.
    void FetchChapters()
    {
        if (item_.chaptersUrl.isEmpty())
            return FetchPicture();
        fetcher_.FetchDocument(item_.chaptersUrl, {}, {}, [this](const DocumentFetch& fetched) {
            std::vector<FeedChapter> chapters;
            QString error;
            if (fetched.error.isEmpty() && ParseChaptersJson(fetched.body, fetched.url, chapters, error)) {
                input_.chapters.emplace();
                for (const FeedChapter& c : chapters)
                    input_.chapters->push_back({c.startMs, -1, c.title.toStdString()});
            }
            FetchPicture();
        });
    }

    void FetchPicture()
    {
        const QUrl url = item_.imageUrl.isEmpty() ? current_.imageUrl : item_.imageUrl;
        if (url.isEmpty())
            return FetchAudio();
        if (pictures_.contains(url)) {
            UsePicture(pictures_.value(url));
            return FetchAudio();
        }
        fetcher_.FetchDocument(url, {}, {}, [this, url](const DocumentFetch& fetched) {
            // A picture that cannot be had leaves the file's own cover.
            pictures_.insert(url, fetched.error.isEmpty() ? fetched.body : QByteArray());
            UsePicture(pictures_.value(url));
            FetchAudio();
        });
    }

    void UsePicture(const QByteArray& bytes)
    {
        std::vector<std::uint8_t> picture(bytes.begin(), bytes.end());
        if (zqxauthor::IsPicture(picture))
            input_.picture = std::move(picture);
    }

    void FetchAudio()
    {
        if (!QDir().mkpath(downloads_))
            return EpisodeFailed(QStringLiteral("cannot make the download folder %1").arg(downloads_));
        const QString suffix = QFileInfo(item_.enclosureUrl.path()).suffix().left(8);
        audio_ = downloads_ + QLatin1Char('/') + HashHex(item_.guid, kEpisodeHashHexChars) +
                 (suffix.isEmpty() ? QString() : QLatin1Char('.') + suffix);
        const QUrl subscription = current_.url;
        const QString guid = item_.guid;
        fetcher_.Download(
            item_.enclosureUrl, audio_, qint64(item_.enclosureBytes),
            [this, subscription, guid](qint64 received, qint64 total) {
                Tell(updater_, &FeedUpdater::episodeProgress, subscription, guid, received, total);
            },
            [this](const QString& error) {
                if (!error.isEmpty())
                    return EpisodeFailed(error);
                Pack();
            });
    }

    // Packing is CPU work of seconds to minutes: it runs on a worker thread
    // while this thread's event loop stays free.
    void Pack()
    {
        EpisodeRecord& record = current_.episodes[episode_];
        if (record.programId.isEmpty())
            record.programId = ProgramIdFor(current_.title, record.guid);
        input_.audioPath = Bytes(audio_);
        input_.fields.title = item_.title.toStdString();
        input_.fields.author = (current_.author.isEmpty() ? current_.title : current_.author).toStdString();
        input_.fields.description = DescriptionFor(item_).toStdString();
        input_.programme = current_.title.toStdString();
        input_.episode = EpisodeNameFor(item_).toStdString();
        input_.programId = record.programId.toStdString();
        ImportOptions options;
        options.fileType = updater_.options_.fileType ? updater_.options_.fileType : options.fileType;
        options.musicFolder = Bytes(updater_.options_.musicFolder);
        options.playerPath = Bytes(updater_.options_.playerPath);
        // The outcome is handed back in a place of its own rather than as the
        // future's result, so the hand-off covers it whole.
        auto outcome = std::make_shared<PackOutcome>();
        auto* watcher = new QFutureWatcher<void>(this);
        connect(watcher, &QFutureWatcher<void>::finished, this, [this, watcher, outcome] {
            talvo::TakeOverFromAnotherThread();
            watcher->deleteLater();
            Packed(*outcome);
        });
        QFuture<void> packing;
        talvo::HandOffThroughEventQueue([&] {
            packing = QtConcurrent::run([options, input = input_, outcome] {
                talvo::TakeOverFromAnotherThread();
                BookImporter importer(options);
                outcome->ok = importer.ImportEpisode(input, outcome->result);
                outcome->error = QString::fromStdString(importer.Error());
                talvo::HandOffToAnotherThread();
            });
        });
        watcher->setFuture(packing);
    }

    void Packed(const PackOutcome& outcome)
    {
        QFile::remove(audio_);
        if (!outcome.ok)
            return EpisodeFailed(
                QStringLiteral("%1: %2").arg(item_.enclosureUrl.toDisplayString(), outcome.error));
        current_.episodes[episode_].programPath = talvo::DecodeFileName(outcome.result.programPath);
        SetState(EpisodeState::Ready, {});
        ++episode_;
        NextEpisode();
    }

    void EpisodeFailed(const QString& error)
    {
        ++failures_;
        SetState(EpisodeState::Failed, error);
        ++episode_;
        NextEpisode();
    }

    void SetState(EpisodeState state, const QString& error)
    {
        EpisodeRecord& record = current_.episodes[episode_];
        record.state = state;
        record.error = error;
        Save();
        Tell(updater_, &FeedUpdater::episodeStateChanged, current_.url, record.guid, state, error);
    }

    // Programs beyond the newest few go, through the player so that its list
    // stays right, except the one it has open (by its own word when it runs,
    // else its "Last Program"): a listener in the middle of it keeps it until
    // the next update after they moved on.
    void Prune()
    {
        const QString playing = talvo::SettingsStore(updater_.registry_).GetLastProgram();
        const QString openTrack = TrackOpenInPlayer();
        bool changed = MarkListened(updater_.registry_, current_) > 0;
        for (std::size_t i = current_.keep; i < current_.episodes.size(); ++i) {
            EpisodeRecord& record = current_.episodes[i];
            if (record.state == EpisodeState::Downloading) { // a run that ended on the way
                record.state = EpisodeState::New;
                changed = true;
            }
            if (record.programPath.isEmpty() || record.programPath == playing || IsTrackOf(openTrack, record))
                continue;
            record.error = DeleteProgram(record.programPath);
            if (!record.error.isEmpty())
                continue;
            record.programPath.clear();
            if (record.state == EpisodeState::Ready)
                record.state = EpisodeState::New;
            changed = true;
        }
        if (changed)
            Save();
        Tell(updater_, &FeedUpdater::subscriptionUpdated, current_.url);
        NextSubscription();
    }

    // Why the program could not be deleted, or empty.
    QString DeleteProgram(const QString& path)
    {
        const QString player = updater_.options_.playerPath;
        const bool exists = talvo::StatusOfPath(path).exists;
        if (exists && !player.isEmpty()) {
            talvo::sync::SyncClientOptions client;
            client.player = player;
            client.talvoreg = QFileInfo(player).dir().filePath(QStringLiteral("talvoreg"));
            const talvo::sync::SyncOutcome told =
                talvo::sync::RunSyncCommandOnDevice(client, talvo::SyncCommand::DeleteProgram, path);
            if (!told.error.isEmpty())
                return QStringLiteral("could not delete %1: %2").arg(path, told.error);
            if (told.result != 0)
                return QStringLiteral("could not delete %1: the player answered 0x%2")
                    .arg(path)
                    .arg(told.result, 8, 16, QLatin1Char('0'));
        } else if (std::error_code error; exists && !fs::remove(Bytes(path), error)) {
            return QStringLiteral("could not delete %1: %2")
                .arg(path, QString::fromStdString(error.message()));
        }
        // A running player deletes on its own loop, soon after it was asked;
        // the episode's folder goes too once nothing else is left in it.
        for (int wait = 0; wait < kDeleteWaitSteps && talvo::StatusOfPath(path).exists; ++wait)
            QThread::msleep(kDeleteWaitStepMs);
        std::error_code ignored;
        fs::remove(FolderOf(path), ignored);
        return {};
    }

    void Save()
    {
        if (!updater_.store_.Save(current_))
            Tell(updater_, &FeedUpdater::subscriptionFailed, current_.url, updater_.store_.error());
    }

    FeedUpdater& updater_;
    std::vector<Subscription> queue_;
    std::size_t next_ = 0;
    int failures_ = 0;
    HttpFetcher fetcher_;
    QString downloads_;
    QHash<QUrl, QByteArray> pictures_;

    Subscription current_;
    Feed feed_;
    std::size_t episode_ = 0; // index into current_.episodes
    FeedEpisode item_;        // its entry in the feed
    EpisodeInput input_;
    QString audio_;
};

FeedUpdater::FeedUpdater(talvo::Registry& registry, UpdateOptions options, QObject* parent)
    : QObject(parent), registry_(registry), store_(registry), options_(std::move(options))
{
}

FeedUpdater::~FeedUpdater() = default;

void FeedUpdater::Update(const QString& urlOrTitle)
{
    if (run_)
        return;
    std::vector<Subscription> subscriptions;
    if (urlOrTitle.isEmpty()) {
        if (!store_.Load(subscriptions)) {
            Tell(*this, &FeedUpdater::subscriptionFailed, QUrl(), store_.error());
            Tell(*this, &FeedUpdater::finished, 1);
            return;
        }
    } else if (auto one = store_.Find(urlOrTitle)) {
        subscriptions.push_back(std::move(*one));
    } else {
        Tell(*this, &FeedUpdater::subscriptionFailed, QUrl(),
             QStringLiteral("there is no subscription '%1'").arg(urlOrTitle));
        Tell(*this, &FeedUpdater::finished, 1);
        return;
    }
    run_ = new Run(*this, std::move(subscriptions));
    run_->Start();
}

void FeedUpdater::Finish(int failures)
{
    run_->deleteLater();
    run_ = nullptr;
    Tell(*this, &FeedUpdater::finished, failures);
}

} // namespace feldrun
