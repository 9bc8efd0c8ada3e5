#include "FeldrunWindow.h"

#include "BackgroundWork.h"
#include "PictureCache.h"
#include "SubscribeDialog.h"
#include "feldrun/SubscriptionCommands.h"
#include "platform/EventQueueHandOff.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QShortcut>
#include <QSplitter>
#include <QStatusBar>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <optional>

namespace feldrun {
namespace {

struct StateName {
    EpisodeState state;
    const char* text;
};
// What the State column says for each state.
constexpr StateName kStateNames[] = {
    {EpisodeState::New, "New"},       {EpisodeState::Downloading, "Downloading"},
    {EpisodeState::Ready, "Ready"},   {EpisodeState::Listened, "Listened"},
    {EpisodeState::Failed, "Failed"},
};
static_assert(std::size(kStateNames) == static_cast<std::size_t>(EpisodeState::Failed) + 1);

enum EpisodeColumn { kTitleColumn, kDateColumn, kStateColumn, kEpisodeColumnCount };
constexpr int kGuidRole = Qt::UserRole;
constexpr int kIconEdge = 48;
// Bytes a progress bar counts in: a QProgressBar holds an int, episodes may pass 2 GB.
constexpr qint64 kProgressUnit = 1024;

QString StateText(const EpisodeRecord& episode)
{
    for (const StateName& name : kStateNames)
        if (name.state == episode.state)
            return episode.state == EpisodeState::Failed && !episode.error.isEmpty()
                       ? QStringLiteral("%1: %2").arg(QLatin1String(name.text), episode.error)
                       : QLatin1String(name.text);
    return {};
}

QString DisplayTitle(const Subscription& subscription)
{
    return subscription.title.isEmpty() ? subscription.url.toDisplayString() : subscription.title;
}

// Until its own picture has come, a subscription shows its initial.
QIcon InitialIcon(const QString& title, const QPalette& palette)
{
    QPixmap pixmap(kIconEdge, kIconEdge);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(palette.color(QPalette::Highlight));
    painter.setPen(Qt::NoPen);
    painter.drawRoundedRect(pixmap.rect(), 8, 8);
    QFont font = painter.font();
    font.setPixelSize(kIconEdge / 2);
    font.setBold(true);
    painter.setFont(font);
    painter.setPen(palette.color(QPalette::HighlightedText));
    painter.drawText(pixmap.rect(), Qt::AlignCenter, title.left(1).toUpper());
    return QIcon(pixmap);
}

QStringList LocalFiles(const QMimeData* data)
{
    QStringList files;
    for (const QUrl& url : data->urls())
        if (url.isLocalFile())
            files << url.toLocalFile();
    return files;
}

} // namespace

FeldrunWindow::FeldrunWindow(SubscriptionStore& store, BackgroundWork& work, PictureCache& pictures,
                             QWidget* parent)
    : QMainWindow(parent), store_(store), work_(work), pictures_(pictures)
{
    setWindowTitle(QStringLiteral("Feldrun"));
    setObjectName(QStringLiteral("feldrunWindow"));
    setAcceptDrops(true);
    BuildControls();
    ConnectWork();
    ReloadSubscriptions();
}

void FeldrunWindow::BuildControls()
{
    subscriptionList_ = new QListWidget;
    subscriptionList_->setObjectName(QStringLiteral("subscriptions"));
    subscriptionList_->setAccessibleName(tr("Subscriptions"));
    subscriptionList_->setIconSize(QSize(kIconEdge, kIconEdge));
    subscriptionList_->setSpacing(2);
    episodesHeading_ = new QLabel(tr("&Episodes"));
    episodeList_ = new QTreeWidget;
    episodeList_->setObjectName(QStringLiteral("episodes"));
    episodeList_->setAccessibleName(tr("Episodes"));
    episodeList_->setHeaderLabels({tr("Episode"), tr("Published"), tr("State")});
    episodeList_->setRootIsDecorated(false);
    episodeList_->setUniformRowHeights(true);
    episodeList_->header()->setSectionResizeMode(kTitleColumn, QHeaderView::Stretch);
    episodeList_->header()->setStretchLastSection(false);
    episodeList_->header()->resizeSection(kStateColumn, 160);
    episodesHeading_->setBuddy(episodeList_);
    auto* subscriptionsHeading = new QLabel(tr("&Subscriptions"));
    subscriptionsHeading->setBuddy(subscriptionList_);

    updateButton_ = new QPushButton(tr("&Update now"));
    updateButton_->setAccessibleName(tr("Update now"));
    updateButton_->setAccessibleDescription(tr("Fetches every subscription's new episodes"));
    subscribeButton_ = new QPushButton(tr("Su&bscribe…"));
    subscribeButton_->setAccessibleName(tr("Subscribe"));
    subscribeButton_->setAccessibleDescription(tr("Subscribes by a feed's address or from an OPML file"));
    importButton_ = new QPushButton(tr("&Import books…"));
    importButton_->setAccessibleName(tr("Import books"));
    importButton_->setAccessibleDescription(
        tr("Brings audio books into the player; books may also be dropped here"));
    for (QPushButton* button : {updateButton_, subscribeButton_, importButton_})
        button->setAutoDefault(true);

    auto* left = new QWidget;
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 0, 0);
    leftLayout->addWidget(subscriptionsHeading);
    leftLayout->addWidget(subscriptionList_);
    auto* right = new QWidget;
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    rightLayout->addWidget(episodesHeading_);
    rightLayout->addWidget(episodeList_);
    auto* splitter = new QSplitter;
    splitter->addWidget(left);
    splitter->addWidget(right);
    splitter->setStretchFactor(1, 2);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(updateButton_);
    buttons->addStretch();
    buttons->addWidget(subscribeButton_);
    buttons->addWidget(importButton_);
    auto* central = new QWidget;
    auto* layout = new QVBoxLayout(central);
    layout->addWidget(splitter);
    layout->addLayout(buttons);
    setCentralWidget(central);

    status_ = new QLabel;
    status_->setObjectName(QStringLiteral("status"));
    status_->setAccessibleName(tr("Status"));
    importProgress_ = new QProgressBar;
    importProgress_->setObjectName(QStringLiteral("importProgress"));
    importProgress_->setAccessibleName(tr("Import progress"));
    importProgress_->setRange(0, 1000);
    importProgress_->setMaximumWidth(200);
    importProgress_->hide();
    statusBar()->addWidget(status_, 1);
    statusBar()->addPermanentWidget(importProgress_);
    statusBar()->setSizeGripEnabled(false);

    setTabOrder(subscriptionList_, episodeList_);
    setTabOrder(episodeList_, updateButton_);
    setTabOrder(updateButton_, subscribeButton_);
    setTabOrder(subscribeButton_, importButton_);
    subscriptionList_->setFocus();

    connect(subscriptionList_, &QListWidget::currentRowChanged, this, &FeldrunWindow::ShowEpisodes);
    // Enter (or a double click) on a subscription updates it alone; not the
    // view's "activated", which desktops set to single-click would send on
    // every choice of a row.
    const auto updateChosen = [this] {
        if (const int row = subscriptionList_->currentRow(); row >= 0)
            UpdateSubscription(subscriptions_[static_cast<std::size_t>(row)].url.toString());
    };
    for (const int key : {Qt::Key_Return, Qt::Key_Enter})
        connect(new QShortcut(QKeySequence(key), subscriptionList_, nullptr, nullptr, Qt::WidgetShortcut),
                &QShortcut::activated, this, updateChosen);
    connect(subscriptionList_, &QListWidget::itemDoubleClicked, this, updateChosen);
    auto* unsubscribe =
        new QShortcut(QKeySequence::Delete, subscriptionList_, nullptr, nullptr, Qt::WidgetShortcut);
    connect(unsubscribe, &QShortcut::activated, this,
            [this] { Unsubscribe(subscriptionList_->currentRow()); });
    connect(updateButton_, &QPushButton::clicked, this, &FeldrunWindow::UpdateNow);
    connect(subscribeButton_, &QPushButton::clicked, this, &FeldrunWindow::AskToSubscribe);
    connect(importButton_, &QPushButton::clicked, this, &FeldrunWindow::AskForBooks);
    connect(&pictures_, &PictureCache::pictureReady, this, &FeldrunWindow::ShowPicture);
    resize(860, 520);
}

void FeldrunWindow::ConnectWork()
{
    FeedUpdater& updater = work_.Updater();
    connect(&updater, &FeedUpdater::subscriptionUpdated, this, &FeldrunWindow::TakeSubscriptionUpdate);
    connect(&updater, &FeedUpdater::episodeStateChanged, this, &FeldrunWindow::TakeEpisodeState);
    connect(&updater, &FeedUpdater::episodeProgress, this, &FeldrunWindow::TakeEpisodeProgress);
    connect(&updater, &FeedUpdater::subscriptionFailed, this, &FeldrunWindow::TakeSubscriptionFailure);
    connect(&work_, &BackgroundWork::updateFinished, this, &FeldrunWindow::TakeUpdateEnd);
    connect(&work_, &BackgroundWork::importProgress, this, &FeldrunWindow::TakeImportProgress);
    connect(&work_, &BackgroundWork::importFinished, this, &FeldrunWindow::TakeImportEnd);
}

QString FeldrunWindow::RowText(const Subscription& subscription)
{
    const auto waiting = std::count_if(subscription.episodes.begin(), subscription.episodes.end(),
                                       [](const EpisodeRecord& e) { return e.state == EpisodeState::Ready; });
    const QString title = DisplayTitle(subscription);
    return waiting == 0 ? title : tr("%1 (%n new)", nullptr, static_cast<int>(waiting)).arg(title);
}

void FeldrunWindow::ReloadSubscriptions()
{
    const QUrl chosen = subscriptionList_->currentRow() >= 0
                            ? subscriptions_[static_cast<std::size_t>(subscriptionList_->currentRow())].url
                            : QUrl();
    std::vector<Subscription> loaded;
    if (!store_.Load(loaded))
        Say(tr("The subscriptions cannot be read: %1").arg(store_.error()));
    const QSignalBlocker quiet(subscriptionList_);
    subscriptions_ = std::move(loaded);
    subscriptionList_->clear();
    for (std::size_t i = 0; i < subscriptions_.size(); ++i) {
        subscriptionList_->addItem(QString());
        ShowRow(static_cast<int>(i));
    }
    const int row = RowOf(chosen);
    subscriptionList_->setCurrentRow(row >= 0 ? row : 0);
    ShowEpisodes();
}

void FeldrunWindow::ShowRow(int row)
{
    const Subscription& subscription = subscriptions_[static_cast<std::size_t>(row)];
    QListWidgetItem* item = subscriptionList_->item(row);
    QString text = RowText(subscription);
    const QString failure = failures_.value(subscription.url);
    if (!failure.isEmpty())
        text += tr(", not updated: %1").arg(failure);
    item->setText(text);
    item->setToolTip(subscription.url.toDisplayString());
    const QIcon picture = pictures_.Picture(subscription.imageUrl);
    item->setIcon(picture.isNull() ? InitialIcon(DisplayTitle(subscription), palette()) : picture);
}

void FeldrunWindow::ShowEpisodes()
{
    episodeList_->clear();
    const int row = subscriptionList_->currentRow();
    if (row < 0) {
        episodesHeading_->setText(tr("&Episodes"));
        return;
    }
    const Subscription& subscription = subscriptions_[static_cast<std::size_t>(row)];
    episodesHeading_->setText(tr("&Episodes of %1").arg(DisplayTitle(subscription)));
    for (const EpisodeRecord& episode : subscription.episodes)
        ShowEpisode(new QTreeWidgetItem(episodeList_), episode);
}

void FeldrunWindow::ShowEpisode(QTreeWidgetItem* item, const EpisodeRecord& episode)
{
    item->setData(kTitleColumn, kGuidRole, episode.guid);
    item->setText(kTitleColumn, episode.title.isEmpty() ? episode.guid : episode.title);
    item->setText(kDateColumn,
                  episode.published.isValid()
                      ? QLocale().toString(episode.published.toLocalTime().date(), QLocale::ShortFormat)
                      : QString());
    item->setText(kStateColumn, StateText(episode));
    item->setToolTip(kStateColumn, episode.error);
    if (episode.state == EpisodeState::Downloading)
        ProgressBarOf(item, true);
    else if (ProgressBarOf(item, false))
        episodeList_->removeItemWidget(item, kStateColumn); // the view deletes the bar
}

QProgressBar* FeldrunWindow::ProgressBarOf(QTreeWidgetItem* item, bool make)
{
    auto* bar = qobject_cast<QProgressBar*>(episodeList_->itemWidget(item, kStateColumn));
    if (bar || !make)
        return bar;
    bar = new QProgressBar;
    bar->setAccessibleName(tr("Downloading %1").arg(item->text(kTitleColumn)));
    bar->setRange(0, 0); // busy until the size is known
    bar->setTextVisible(true);
    episodeList_->setItemWidget(item, kStateColumn, bar);
    return bar;
}

int FeldrunWindow::RowOf(const QUrl& subscription) const
{
    for (std::size_t i = 0; i < subscriptions_.size(); ++i)
        if (subscriptions_[i].url == subscription)
            return static_cast<int>(i);
    return -1;
}

EpisodeRecord* FeldrunWindow::FindEpisode(const QUrl& subscription, const QString& guid,
                                          QTreeWidgetItem** item)
{
    *item = nullptr;
    const int row = RowOf(subscription);
    if (row < 0)
        return nullptr;
    auto& episodes = subscriptions_[static_cast<std::size_t>(row)].episodes;
    const auto found = std::find_if(episodes.begin(), episodes.end(),
                                    [&](const EpisodeRecord& e) { return e.guid == guid; });
    if (found == episodes.end())
        return nullptr;
    if (row == subscriptionList_->currentRow()) {
        const int index = static_cast<int>(found - episodes.begin());
        *item = episodeList_->topLevelItem(index);
    }
    return &*found;
}

void FeldrunWindow::ShowPicture(const QUrl& url)
{
    for (std::size_t i = 0; i < subscriptions_.size(); ++i)
        if (subscriptions_[i].imageUrl == url)
            ShowRow(static_cast<int>(i));
}

void FeldrunWindow::TakeSubscriptionUpdate(const QUrl& subscription)
{
    talvo::TakeOverFromAnotherThread();
    failures_.remove(subscription);
    // The store has the whole of it: a new subscription's title and
    // episodes, or a moved feed under its new address (which the list does
    // not know yet, so it is read again whole).
    const int row = RowOf(subscription);
    std::optional<Subscription> fresh = row >= 0 ? store_.Find(subscription.toString()) : std::nullopt;
    if (!fresh || fresh->url != subscription) {
        ReloadSubscriptions();
        return;
    }
    subscriptions_[static_cast<std::size_t>(row)] = std::move(*fresh);
    ShowRow(row);
    if (row == subscriptionList_->currentRow())
        ShowEpisodes();
}

void FeldrunWindow::TakeEpisodeState(const QUrl& subscription, const QString& guid, EpisodeState state,
                                     const QString& error)
{
    talvo::TakeOverFromAnotherThread();
    QTreeWidgetItem* item = nullptr;
    EpisodeRecord* episode = FindEpisode(subscription, guid, &item);
    if (!episode) {
        // An episode the window has not seen yet: the store knows it.
        ReloadSubscriptions();
        return;
    }
    episode->state = state;
    episode->error = error;
    if (item)
        ShowEpisode(item, *episode);
    ShowRow(RowOf(subscription));
}

void FeldrunWindow::TakeEpisodeProgress(const QUrl& subscription, const QString& guid, qint64 received,
                                        qint64 total)
{
    talvo::TakeOverFromAnotherThread();
    QTreeWidgetItem* item = nullptr;
    if (!FindEpisode(subscription, guid, &item) || !item)
        return;
    QProgressBar* bar = ProgressBarOf(item, true);
    if (total <= 0) {
        bar->setRange(0, 0);
        return;
    }
    bar->setRange(0, static_cast<int>(total / kProgressUnit));
    bar->setValue(static_cast<int>(std::min(received, total) / kProgressUnit));
}

void FeldrunWindow::TakeSubscriptionFailure(const QUrl& subscription, const QString& error)
{
    talvo::TakeOverFromAnotherThread();
    if (subscription.isEmpty()) {
        // Not one subscription's failure: the store could not be read.
        Say(tr("Nothing was updated: %1").arg(error));
        return;
    }
    // Kept for a subscription the list shows after its next reading too
    // (one made by `feldrun subscribe` while the window is open).
    failures_.insert(subscription, error);
    const int row = RowOf(subscription);
    if (row < 0)
        return;
    ShowRow(row);
    Say(tr("%1 was not updated: %2").arg(DisplayTitle(subscriptions_[static_cast<std::size_t>(row)]), error));
}

void FeldrunWindow::UpdateNow()
{
    if (!work_.Updating())
        UpdateSubscription(QString());
}

void FeldrunWindow::UpdateSubscription(const QString& urlOrTitle)
{
    if (work_.Updating()) {
        // One update at a time; a new subscription's first one follows.
        waitingUpdates_.insert(urlOrTitle);
        return;
    }
    if (!work_.Update(urlOrTitle))
        return;
    updateButton_->setEnabled(false);
    Say(tr("Updating…"));
}

void FeldrunWindow::TakeUpdateEnd(int failures)
{
    updateButton_->setEnabled(true);
    ReloadSubscriptions();
    Say(failures == 0 ? tr("Everything is up to date.")
                      : tr("Updated; %n could not be brought in (see their rows).", nullptr, failures));
    if (waitingUpdates_.isEmpty())
        return;
    // Several waiting (or all of them): one update of everything.
    const QString next = waitingUpdates_.size() == 1 ? *waitingUpdates_.begin() : QString();
    waitingUpdates_.clear();
    UpdateSubscription(next);
}

void FeldrunWindow::Subscribe(const QUrl& url)
{
    // As the store finds it: "https://example.org/feed/" is the same feed.
    if (const std::optional<Subscription> known = store_.Find(url.toString())) {
        ReloadSubscriptions();
        subscriptionList_->setCurrentRow(RowOf(known->url));
        Say(tr("You are already subscribed to %1.").arg(DisplayTitle(*known)));
        return;
    }
    Subscription subscription;
    subscription.url = url;
    if (!store_.Save(subscription)) {
        Say(tr("The subscription to %1 cannot be kept: %2").arg(url.toDisplayString(), store_.error()));
        return;
    }
    ReloadSubscriptions();
    subscriptionList_->setCurrentRow(RowOf(url));
    UpdateSubscription(url.toString());
}

void FeldrunWindow::SubscribeFromOpml(const QString& path)
{
    std::vector<OpmlEntry> entries;
    QString error;
    const bool read = ImportOpmlFile(store_, path, entries, error);
    ReloadSubscriptions();
    const auto added =
        std::count_if(entries.begin(), entries.end(), [](const OpmlEntry& e) { return e.skipped.isEmpty(); });
    const QString name = QFileInfo(path).fileName();
    if (!read)
        Say(tr("Subscriptions from %1 stopped: %2").arg(name, error));
    else
        Say(tr("%n new subscription(s) from %1, %2 passed over.", nullptr, static_cast<int>(added))
                .arg(name)
                .arg(entries.size() - added));
    if (added > 0)
        UpdateSubscription(QString());
}

void FeldrunWindow::Unsubscribe(int row)
{
    if (row < 0 || row >= static_cast<int>(subscriptions_.size()))
        return;
    const Subscription& subscription = subscriptions_[static_cast<std::size_t>(row)];
    if (work_.Updating()) {
        Say(tr("Unsubscribe once the update has finished."));
        return;
    }
    QMessageBox ask(QMessageBox::Question, tr("Unsubscribe"),
                    tr("Unsubscribe from %1? Episodes already downloaded stay in the player.")
                        .arg(DisplayTitle(subscription)),
                    QMessageBox::Yes | QMessageBox::No, this);
    ask.setDefaultButton(QMessageBox::No);
    if (ask.exec() != QMessageBox::Yes)
        return;
    if (!store_.Remove(subscription.url)) {
        Say(tr("%1 cannot be unsubscribed: %2").arg(DisplayTitle(subscription), store_.error()));
        return;
    }
    Say(tr("Unsubscribed from %1.").arg(DisplayTitle(subscription)));
    ReloadSubscriptions();
}

void FeldrunWindow::AskToSubscribe()
{
    SubscribeDialog dialog(this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    if (!dialog.OpmlFile().isEmpty())
        SubscribeFromOpml(dialog.OpmlFile());
    else
        Subscribe(dialog.FeedUrl());
}

void FeldrunWindow::AskForBooks()
{
    const QStringList files =
        QFileDialog::getOpenFileNames(this, tr("Import audio books"), QString(),
                                      tr("Audio books (*.m4b *.m4a *.mp3 *.ogg *.opus *.oga *.flac *.wav "
                                         "*.mka *.webm *.wma);;All files (*)"));
    ImportBooks(files);
}

void FeldrunWindow::ImportBooks(const QStringList& paths)
{
    if (paths.isEmpty())
        return;
    work_.Import(paths);
    importProgress_->setValue(0);
    importProgress_->show();
}

void FeldrunWindow::TakeImportProgress(const QString& path, double fraction)
{
    talvo::TakeOverFromAnotherThread();
    importProgress_->setValue(static_cast<int>(fraction * importProgress_->maximum()));
    const int others = work_.ImportsWaiting() - 1;
    const QString name = QFileInfo(path).fileName();
    Say(others > 0 ? tr("Importing %1 (%n more waiting)…", nullptr, others).arg(name)
                   : tr("Importing %1…").arg(name));
}

void FeldrunWindow::TakeImportEnd(const QString& path, const QString& programPath, const QString& error)
{
    const QString name = QFileInfo(path).fileName();
    Say(error.isEmpty() ? tr("%1 is in the player as %2.").arg(name, programPath)
                        : tr("%1 could not be imported: %2").arg(name, error));
    if (work_.ImportsWaiting() == 0)
        importProgress_->hide();
}

void FeldrunWindow::dragEnterEvent(QDragEnterEvent* event)
{
    if (!LocalFiles(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void FeldrunWindow::dropEvent(QDropEvent* event)
{
    const QStringList files = LocalFiles(event->mimeData());
    if (files.isEmpty())
        return;
    event->acceptProposedAction();
    ImportBooks(files);
}

void FeldrunWindow::Say(const QString& text)
{
    status_->setText(text);
}

} // namespace feldrun
