#pragma once
// The feldrun window: the subscriptions with their pictures and how many
// episodes wait unheard, the chosen one's episodes with their state (and a
// progress bar while one downloads), "Update now", "Subscribe…" and
// "Import books…", and books dropped on it imported.  It only reads the
// store and listens to the background work; it never waits for either.

#include "feldrun/SubscriptionStore.h"

#include <QHash>
#include <QMainWindow>
#include <QSet>

#include <vector>

class QLabel;
class QListWidget;
class QProgressBar;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace feldrun {

class BackgroundWork;
class PictureCache;

class FeldrunWindow : public QMainWindow {
    Q_OBJECT
public:
    FeldrunWindow(SubscriptionStore& store, BackgroundWork& work, PictureCache& pictures,
                  QWidget* parent = nullptr);

    QListWidget* SubscriptionList() const { return subscriptionList_; }
    QTreeWidget* EpisodeList() const { return episodeList_; }
    QPushButton* UpdateButton() const { return updateButton_; }
    QLabel* StatusLine() const { return status_; }

    // A new subscription to the feed at url, brought up to date at once (or
    // as soon as the update running now ends).
    void Subscribe(const QUrl& url);
    // Every feed an OPML file lists.
    void SubscribeFromOpml(const QString& path);
    void ImportBooks(const QStringList& paths);
    // Asks first; the episodes already downloaded stay.
    void Unsubscribe(int row);
    void UpdateNow();
    // The text of a subscription's row: its title, and the episodes that wait unheard.
    static QString RowText(const Subscription& subscription);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void BuildControls();
    void ConnectWork();
    void ReloadSubscriptions();
    void ShowRow(int row);
    void ShowEpisodes();
    void ShowEpisode(QTreeWidgetItem* item, const EpisodeRecord& episode);
    void ShowPicture(const QUrl& url);
    int RowOf(const QUrl& subscription) const;
    EpisodeRecord* FindEpisode(const QUrl& subscription, const QString& guid, QTreeWidgetItem** item);
    QProgressBar* ProgressBarOf(QTreeWidgetItem* item, bool make);
    void UpdateSubscription(const QString& urlOrTitle);
    void AskToSubscribe();
    void AskForBooks();

    void TakeSubscriptionUpdate(const QUrl& subscription);
    void TakeEpisodeState(const QUrl& subscription, const QString& guid, EpisodeState state,
                          const QString& error);
    void TakeEpisodeProgress(const QUrl& subscription, const QString& guid, qint64 received, qint64 total);
    void TakeSubscriptionFailure(const QUrl& subscription, const QString& error);
    void TakeUpdateEnd(int failures);
    void TakeImportProgress(const QString& path, double fraction);
    void TakeImportEnd(const QString& path, const QString& programPath, const QString& error);

    void Say(const QString& text);

    SubscriptionStore& store_;
    BackgroundWork& work_;
    PictureCache& pictures_;
    std::vector<Subscription> subscriptions_; // in the list's order
    QHash<QUrl, QString> failures_;           // of the last update, by subscription
    QSet<QString> waitingUpdates_;            // asked for while another update ran
    QListWidget* subscriptionList_;
    QTreeWidget* episodeList_;
    QLabel* episodesHeading_;
    QPushButton* updateButton_;
    QPushButton* subscribeButton_;
    QPushButton* importButton_;
    QLabel* status_;
    QProgressBar* importProgress_;
};

} // namespace feldrun
