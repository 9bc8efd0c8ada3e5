#pragma once
// Brings each subscription up to date: fetches its feed (a conditional request
// when nothing changed), downloads new episodes (resuming after a break),
// packs each into a program with its chapters and picture, tells the running
// player, and keeps only the newest few on the device.  Works on the event
// loop of the thread it lives in; a window moves it to a worker thread.

#include "Feed.h"
#include "SubscriptionStore.h"

#include <QObject>

namespace feldrun {

struct UpdateOptions {
    QString musicFolder;
    QString playerPath; // talvoplayer, told of added and deleted programs; empty: nobody is told
    int fileType = 0;   // program file type; 0: the import's default
};

class FeedUpdater : public QObject {
    Q_OBJECT
public:
    FeedUpdater(talvo::Registry& registry, UpdateOptions options, QObject* parent = nullptr);
    ~FeedUpdater() override;

public slots:
    // Updates every subscription, or the one whose URL or title is given;
    // finished() follows when all are done.  A call while one runs is ignored.
    void Update(const QString& urlOrTitle = {});

signals:
    void subscriptionUpdated(const QUrl& subscription);
    void episodeStateChanged(const QUrl& subscription, const QString& guid, feldrun::EpisodeState state,
                             const QString& error);
    // Bytes of an episode received so far; total is -1 while unknown.
    void episodeProgress(const QUrl& subscription, const QString& guid, qint64 received, qint64 total);
    // failures: episodes and feeds that could not be brought in, each already
    // reported through episodeStateChanged or subscriptionFailed.
    void subscriptionFailed(const QUrl& subscription, const QString& error);
    // What the feed had wrong without failing (repeated GUIDs, enclosures
    // that are no web links), named by the subscription's title.
    void subscriptionWarning(const QUrl& subscription, const QString& warning);
    void finished(int failures);

private:
    class Run;
    void Finish(int failures);

    Run* run_ = nullptr;
    talvo::Registry& registry_;
    SubscriptionStore store_;
    UpdateOptions options_;
};

} // namespace feldrun
