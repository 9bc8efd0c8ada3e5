#include "FeldrunScreens.h"

#include "ScreenCapture.h"
#include "feldrun/window/BackgroundWork.h"
#include "feldrun/window/FeldrunWindow.h"
#include "feldrun/window/PictureCache.h"
#include "feldrun/window/SubscribeDialog.h"

#include <QLineEdit>
#include <QPainter>

namespace {

using feldrun::EpisodeState;

struct ShownSubscription {
    const char* title;
    const char* url;
    QRgb colour;
    std::initializer_list<std::pair<const char*, EpisodeState>> episodes;
};

// Titles and states as a listener's morning might show them.
const ShownSubscription kShown[] = {
    {"Morning Notes",
     "https://example.org/morning-notes.xml",
     0xff2e6f95,
     {{"Tuesday: the harbour reopens", EpisodeState::Downloading},
      {"Monday: a week of rain", EpisodeState::Ready},
      {"Friday: the long bridge", EpisodeState::Listened},
      {"Thursday: garden markets", EpisodeState::New}}},
    {"The Garden Hour",
     "https://example.org/garden/feed",
     0xff4f8a3c,
     {{"Pruning in winter", EpisodeState::Ready}, {"Seeds that keep", EpisodeState::Ready}}},
    {"Stories at Night",
     "https://example.org/stories.rss",
     0xff7a3f8f,
     {{"The lighthouse keeper", EpisodeState::Failed}, {"A train in the snow", EpisodeState::Listened}}},
};

// A programme's picture: its colour with a few bands, as feeds' artwork is square.
QUrl DrawPicture(const QString& scratch, int index, QRgb colour)
{
    QImage image(300, 300, QImage::Format_RGB32);
    image.fill(colour);
    QPainter painter(&image);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(255, 255, 255, 70));
    for (int band = 0; band < 3; ++band)
        painter.drawEllipse(QPoint(150, 150), 130 - band * 40, 130 - band * 40);
    painter.end();
    const QString path = QStringLiteral("%1/programme-%2.png").arg(scratch).arg(index);
    image.save(path);
    return QUrl::fromLocalFile(path);
}

} // namespace

int SaveFeldrunScreens(talvo::Registry& registry, const QString& scratch, const QString& out)
{
    feldrun::SubscriptionStore store(registry);
    QDateTime published = QDateTime::currentDateTimeUtc();
    int index = 0;
    for (const ShownSubscription& shown : kShown) {
        feldrun::Subscription subscription;
        subscription.url = QUrl(QString::fromLatin1(shown.url));
        subscription.title = QString::fromLatin1(shown.title);
        subscription.imageUrl = DrawPicture(scratch, index++, shown.colour);
        for (auto [title, state] : shown.episodes) {
            feldrun::EpisodeRecord episode;
            episode.guid = episode.title = QString::fromLatin1(title);
            episode.published = published = published.addDays(-1);
            episode.state = state;
            if (state == EpisodeState::Failed)
                episode.error = QStringLiteral("404 Not Found from example.org");
            subscription.episodes.push_back(episode);
        }
        store.Save(subscription);
    }
    feldrun::BackgroundWork work(registry, {}, {});
    feldrun::PictureCache pictures(scratch + QStringLiteral("/pictures"));
    feldrun::FeldrunWindow window(store, work, pictures);
    window.show();
    screenshots::settle(400);
    // The first episode of the first subscription part way down.
    feldrun::FeedUpdater& updater = work.Updater();
    const QUrl first(QString::fromLatin1(kShown[0].url));
    const QString guid = QString::fromLatin1(kShown[0].episodes.begin()->first);
    QMetaObject::invokeMethod(
        &updater, [&] { emit updater.episodeProgress(first, guid, 17 << 20, 41 << 20); },
        Qt::BlockingQueuedConnection);
    screenshots::settle(200);
    int failures = !screenshots::save(window, out + QStringLiteral("/feldrun.png"));

    feldrun::SubscribeDialog dialog(&window);
    dialog.AddressField()->setText(QStringLiteral("https://example.org/evening-news/feed.xml"));
    dialog.show();
    screenshots::settle(200);
    failures += !screenshots::save(dialog, out + QStringLiteral("/feldrun-subscribe.png"));
    return failures;
}
