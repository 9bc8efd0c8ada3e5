// The feldrun window offscreen, on a real store, a real updater on its worker
// thread and real imports: what the worker reports lands on the right row,
// one update runs at a time, dropped books are imported, and everything
// works from the keyboard with a name for a screen reader.
#include "feldrun/window/FeldrunWindow.h"
#include "feldrun/window/BackgroundWork.h"
#include "feldrun/window/PictureCache.h"
#include "feldrun/window/SubscribeDialog.h"
#include "platform/EventQueueHandOff.h"
#include "tests/integration/feldrun/FeedServer.h"
#include "tests/support/TestDevice.h"

#include <QAccessible>
#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>
#include <gtest/gtest.h>

#include <functional>

namespace talvo::test {
namespace {

using feldrun::EpisodeState;

bool pump(const std::function<bool()>& until, int timeoutMs = 20000)
{
    QElapsedTimer clock;
    clock.start();
    do {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        if (until())
            return true;
    } while (clock.elapsed() < timeoutMs);
    return false;
}

feldrun::Subscription MakeSubscription(const QString& url, const QString& title,
                                       std::initializer_list<std::pair<const char*, EpisodeState>> episodes)
{
    feldrun::Subscription s;
    s.url = QUrl(url);
    s.title = title;
    for (auto [guid, state] : episodes) {
        feldrun::EpisodeRecord& episode = s.episodes.emplace_back();
        episode.guid = guid;
        episode.title = QStringLiteral("Episode %1").arg(guid);
        episode.published = QDateTime::currentDateTimeUtc();
        episode.state = state;
    }
    return s;
}

class FeldrunWindowTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        registry_ = OpenSqliteRegistry(device_.registryPath().toStdString());
        ASSERT_TRUE(registry_);
        store_.emplace(*registry_);
        ASSERT_TRUE(store_->Save(MakeSubscription("http://127.0.0.1:9/news", "Morning News",
                                                  {{"n1", EpisodeState::Ready}, {"n2", EpisodeState::New}})));
        ASSERT_TRUE(
            store_->Save(MakeSubscription("http://127.0.0.1:9/garden", "Garden Hour",
                                          {{"g1", EpisodeState::New}, {"g2", EpisodeState::Listened}})));
        feldrun::UpdateOptions updates;
        updates.musicFolder = device_.path("music");
        feldrun::ImportOptions imports;
        imports.musicFolder = device_.path("music").toStdString();
        work_.emplace(*registry_, updates, imports);
        pictures_.emplace(device_.path("cache/pictures"));
        window_.emplace(*store_, *work_, *pictures_);
        window_->show();
        window_->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&*window_));
    }

    // As the updater reports it: from its own thread.
    void report(const std::function<void(feldrun::FeedUpdater&)>& signal)
    {
        feldrun::FeedUpdater& updater = work_->Updater();
        talvo::PostToThreadOf(
            &updater, [&] { talvo::HandOffThroughEventQueue([&] { signal(updater); }); },
            Qt::BlockingQueuedConnection);
        QCoreApplication::processEvents();
    }

    QTreeWidgetItem* episodeRow(int row) { return window_->EpisodeList()->topLevelItem(row); }
    QProgressBar* progressBar(int row)
    {
        return qobject_cast<QProgressBar*>(window_->EpisodeList()->itemWidget(episodeRow(row), 2));
    }

    // Answers the next modal dialog or box from the keyboard, as a listener would.
    void answerNextModal(const std::function<void(QWidget*)>& keys)
    {
        QTimer::singleShot(100, [keys] {
            QWidget* modal = QApplication::activeModalWidget();
            ASSERT_NE(modal, nullptr);
            keys(modal);
        });
    }

    TestDevice device_;
    std::unique_ptr<Registry> registry_;
    std::optional<feldrun::SubscriptionStore> store_;
    std::optional<feldrun::BackgroundWork> work_;
    std::optional<feldrun::PictureCache> pictures_;
    std::optional<feldrun::FeldrunWindow> window_;
};

TEST_F(FeldrunWindowTest, WhatTheWorkerReportsLandsOnItsRowAndTheProgressBarComesAndGoes)
{
    QListWidget* subscriptions = window_->SubscriptionList();
    ASSERT_EQ(subscriptions->count(), 2);
    EXPECT_EQ(subscriptions->item(0)->text(), "Morning News (1 new)");
    EXPECT_EQ(subscriptions->item(1)->text(), "Garden Hour");
    subscriptions->setCurrentRow(1);
    ASSERT_EQ(window_->EpisodeList()->topLevelItemCount(), 2);
    EXPECT_EQ(episodeRow(1)->text(2), "Listened");

    const QUrl garden("http://127.0.0.1:9/garden");
    report([&](auto& u) { emit u.episodeStateChanged(garden, "g1", EpisodeState::Downloading, {}); });
    ASSERT_NE(progressBar(0), nullptr);
    EXPECT_EQ(progressBar(1), nullptr);
    report([&](auto& u) { emit u.episodeProgress(garden, "g1", 3 << 20, 12 << 20); });
    EXPECT_EQ(progressBar(0)->maximum(), 12 * 1024);
    EXPECT_EQ(progressBar(0)->value(), 3 * 1024);
    // A size beyond what an int counts in bytes.
    report([&](auto& u) { emit u.episodeProgress(garden, "g1", 3LL << 30, 5LL << 30); });
    EXPECT_EQ(progressBar(0)->value(), 3 * 1024 * 1024);

    // Reports for the subscription not shown change its row, not the episodes shown.
    const QUrl news("http://127.0.0.1:9/news");
    report([&](auto& u) { emit u.episodeStateChanged(news, "n2", EpisodeState::Ready, {}); });
    EXPECT_EQ(subscriptions->item(0)->text(), "Morning News (2 new)");
    EXPECT_EQ(episodeRow(0)->text(0), "Episode g1");
    EXPECT_EQ(episodeRow(1)->text(0), "Episode g2");
    EXPECT_EQ(episodeRow(1)->text(2), "Listened");
    ASSERT_NE(progressBar(0), nullptr);

    report([&](auto& u) { emit u.episodeStateChanged(garden, "g1", EpisodeState::Ready, {}); });
    EXPECT_TRUE(pump([&] { return progressBar(0) == nullptr; }));
    EXPECT_EQ(episodeRow(0)->text(2), "Ready");
    EXPECT_EQ(subscriptions->item(1)->text(), "Garden Hour (1 new)");
    report([&](auto& u) { emit u.episodeStateChanged(garden, "g2", EpisodeState::Failed, "404 Not Found"); });
    EXPECT_EQ(episodeRow(1)->text(2), "Failed: 404 Not Found");
    report([&](auto& u) { emit u.subscriptionFailed(news, "not a feed: an HTML page"); });
    EXPECT_EQ(subscriptions->item(0)->text(), "Morning News (2 new), not updated: not a feed: an HTML page");
    // A failure of no one subscription (the store could not be read) is told all the same.
    report([&](auto& u) { emit u.subscriptionFailed({}, "the store is damaged"); });
    EXPECT_EQ(window_->StatusLine()->text(), "Nothing was updated: the store is damaged");
}

TEST_F(FeldrunWindowTest, UpdateNowWhileAnUpdateRunsDoesNothing)
{
    // A feed server that takes every connection and never answers.
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    int connections = 0;
    QObject::connect(&server, &QTcpServer::newConnection, [&] {
        while (server.nextPendingConnection())
            ++connections;
    });
    for (const char* title : {"Morning News", "Garden Hour"})
        ASSERT_TRUE(store_->Remove(store_->Find(title)->url));
    const QString url = QStringLiteral("http://127.0.0.1:%1/feed").arg(server.serverPort());
    ASSERT_TRUE(store_->Save(MakeSubscription(url, "Slow News", {})));

    QPushButton* update = window_->UpdateButton();
    QTest::mouseClick(update, Qt::LeftButton);
    ASSERT_TRUE(pump([&] { return connections == 1; }));
    EXPECT_FALSE(update->isEnabled());
    QTest::mouseClick(update, Qt::LeftButton);
    EXPECT_FALSE(work_->Update());
    QTest::qWait(300);
    EXPECT_EQ(connections, 1);

    // The server goes away: the update ends with the feed's failure told.
    for (QTcpSocket* socket : server.findChildren<QTcpSocket*>())
        socket->abort();
    server.close();
    ASSERT_TRUE(pump([&] { return update->isEnabled(); }, 60000));
    EXPECT_TRUE(window_->SubscriptionList()->item(0)->text().startsWith("Slow News, not updated: "))
        << window_->SubscriptionList()->item(0)->text().toStdString();
}

TEST_F(FeldrunWindowTest, ABookDroppedOnTheWindowIsImported)
{
    const QString book = QStringLiteral(TALVO_BUILD_DIR "/book-fixtures/book.m4b");
    QMimeData files;
    files.setUrls({QUrl::fromLocalFile(book), QUrl("https://example.org/not-a-file.mp3")});
    const QPoint centre = window_->rect().center();
    QDragEnterEvent enter(centre, Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&*window_, &enter);
    ASSERT_TRUE(enter.isAccepted());
    QDropEvent drop(centre, Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&*window_, &drop);
    auto* progress = window_->findChild<QProgressBar*>("importProgress");
    EXPECT_TRUE(progress->isVisible());

    ASSERT_TRUE(pump([&] { return work_->ImportsWaiting() == 0; }, 120000));
    const QString said = window_->StatusLine()->text();
    EXPECT_TRUE(said.startsWith("book.m4b is in the player as " + device_.path("music/")))
        << said.toStdString();
    EXPECT_TRUE(QFile::exists(said.section(" as ", 1).chopped(1)));
    EXPECT_FALSE(progress->isVisible());

    // Text that names no file is not taken.
    QMimeData text;
    text.setText("hello");
    QDragEnterEvent refused(centre, Qt::CopyAction, &text, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&*window_, &refused);
    EXPECT_FALSE(refused.isAccepted());
}

TEST_F(FeldrunWindowTest, SubscribeAndUnsubscribeFromTheKeyboardAlone)
{
    // Tab order: subscriptions, episodes, Update now, Subscribe.
    QListWidget* subscriptions = window_->SubscriptionList();
    ASSERT_TRUE(pump([&] { return subscriptions->hasFocus(); }));
    for (int i = 0; i < 3; ++i)
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    ASSERT_EQ(QApplication::focusWidget()->accessibleName(), "Subscribe");

    bool problemShown = false;
    answerNextModal([&](QWidget* dialog) {
        QTest::keyClicks(QApplication::focusWidget(), "not a feed");
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
        problemShown = dialog->findChild<QLabel*>("subscribeProblem")->isVisible() && dialog->isVisible();
        auto* address = qobject_cast<QLineEdit*>(QApplication::focusWidget());
        ASSERT_NE(address, nullptr);
        address->clear();
        QTest::keyClicks(address, "127.0.0.1:9/evening");
        QTest::keyClick(address, Qt::Key_Return);
    });
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    EXPECT_TRUE(problemShown);
    ASSERT_TRUE(store_->Find("https://127.0.0.1:9/evening"));
    ASSERT_EQ(subscriptions->count(), 3);
    EXPECT_EQ(subscriptions->currentItem()->text(), "https://127.0.0.1:9/evening");
    // The same feed again, with a trailing slash, is the one already there.
    window_->Subscribe(QUrl("https://127.0.0.1:9/evening/"));
    EXPECT_EQ(subscriptions->count(), 3);
    EXPECT_EQ(window_->StatusLine()->text(), "You are already subscribed to https://127.0.0.1:9/evening.");
    ASSERT_TRUE(pump([&] { return window_->UpdateButton()->isEnabled(); }, 60000));

    // Enter on a subscription updates it.  (The offscreen platform gives the
    // window back its activation only when asked.)
    window_->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&*window_));
    subscriptions->setFocus();
    QTest::keyClick(subscriptions, Qt::Key_Return);
    EXPECT_TRUE(work_->Updating());
    ASSERT_TRUE(pump([&] { return window_->UpdateButton()->isEnabled(); }, 60000));

    // Delete asks first; its answer is No unless the listener says Yes.
    subscriptions->setCurrentRow(0);
    answerNextModal([](QWidget*) { QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return); });
    QTest::keyClick(subscriptions, Qt::Key_Delete);
    EXPECT_EQ(subscriptions->count(), 3);
    window_->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&*window_));
    answerNextModal([](QWidget* box) { QTest::keyClick(box, Qt::Key_Y, Qt::AltModifier); });
    QTest::keyClick(subscriptions, Qt::Key_Delete);
    EXPECT_EQ(subscriptions->count(), 2);
    EXPECT_FALSE(store_->Find("Morning News"));
}

TEST_F(FeldrunWindowTest, APictureIsFetchedOnceAndKeptSmallForTheNextRun)
{
    QImage big(1200, 800, QImage::Format_RGB32);
    big.fill(Qt::darkGreen);
    const QString original = device_.path("art.jpg");
    ASSERT_TRUE(big.save(original));
    feldrun::Subscription news = *store_->Find("Morning News");
    news.imageUrl = QUrl::fromLocalFile(original);
    ASSERT_TRUE(store_->Save(news));
    report([&](auto& u) { emit u.subscriptionUpdated(news.url); });
    const QString kept = pictures_->CachedPath(news.imageUrl);
    ASSERT_TRUE(pump([&] { return QFile::exists(kept); }));
    EXPECT_EQ(QImage(kept).size(), QSize(96, 64));
    EXPECT_FALSE(pictures_->Picture(news.imageUrl).isNull());

    // The next run has it at once, the original gone or not.
    QFile::remove(original);
    feldrun::PictureCache nextRun(device_.path("cache/pictures"));
    EXPECT_FALSE(nextRun.Picture(news.imageUrl).isNull());
    // A picture that is not one is not kept.
    QFile broken(device_.path("broken.png"));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("<html>not found</html>");
    broken.close();
    const QUrl brokenUrl = QUrl::fromLocalFile(broken.fileName());
    EXPECT_TRUE(nextRun.Picture(brokenUrl).isNull());
    QTest::qWait(300);
    EXPECT_FALSE(QFile::exists(nextRun.CachedPath(brokenUrl)));
}

// The whole way through, against a real feed server: subscribed from the
// window, the feed's title and picture arrive, the episode is downloaded with
// a progress bar and ends Ready in the Music folder.
TEST_F(FeldrunWindowTest, ASubscriptionMadeInTheWindowComesInWhole)
{
    feldrun::test::FeedServer server;
    ASSERT_TRUE(server.running());
    QFile book(QStringLiteral(TALVO_BUILD_DIR "/book-fixtures/book.mp3"));
    QFile cover(QStringLiteral(TALVO_BUILD_DIR "/book-fixtures/cover.png"));
    ASSERT_TRUE(book.open(QIODevice::ReadOnly) && cover.open(QIODevice::ReadOnly));
    server.put("/ep/book.mp3", book.readAll());
    server.put("/cover.png", cover.readAll());
    server.put("/feed.xml",
               QStringLiteral("<?xml version=\"1.0\"?><rss version=\"2.0\" "
                              "xmlns:itunes=\"http://www.itunes.com/dtds/podcast-1.0.dtd\"><channel>"
                              "<title>Evening Talk</title><itunes:image href=\"%1\"/><item>"
                              "<title>First talk</title><guid>t1</guid><enclosure url=\"%2\" "
                              "type=\"audio/mpeg\"/></item></channel></rss>")
                   .arg(server.url("/cover.png").toString(), server.url("/ep/book.mp3").toString())
                   .toUtf8());
    bool barSeen = false;
    QObject::connect(&work_->Updater(), &feldrun::FeedUpdater::episodeProgress, &*window_,
                     [&] { barSeen = barSeen || window_->EpisodeList()->findChild<QProgressBar*>(); });

    window_->Subscribe(server.url("/feed.xml"));
    ASSERT_FALSE(window_->UpdateButton()->isEnabled());
    ASSERT_TRUE(pump([&] { return window_->UpdateButton()->isEnabled(); }, 120000));
    const int row = window_->SubscriptionList()->currentRow();
    EXPECT_EQ(window_->SubscriptionList()->item(row)->text(), "Evening Talk (1 new)");
    ASSERT_EQ(window_->EpisodeList()->topLevelItemCount(), 1);
    EXPECT_EQ(episodeRow(0)->text(2), "Ready");
    EXPECT_EQ(progressBar(0), nullptr);
    EXPECT_TRUE(barSeen);
    const QString program = store_->Find("Evening Talk")->episodes.front().programPath;
    EXPECT_TRUE(program.startsWith(device_.path("music/")) && QFile::exists(program))
        << program.toStdString();
    EXPECT_TRUE(
        pump([&] { return QFile::exists(pictures_->CachedPath(store_->Find("Evening Talk")->imageUrl)); }));
}

TEST_F(FeldrunWindowTest, EveryControlHasANameAndRoleAndListsReadTheirRows)
{
    window_->SubscriptionList()->setCurrentRow(0);
    for (QWidget* widget : window_->findChildren<QWidget*>()) {
        if (!widget->isVisible() || !widget->focusPolicy())
            continue;
        QAccessibleInterface* control = QAccessible::queryAccessibleInterface(widget);
        ASSERT_NE(control, nullptr);
        EXPECT_FALSE(control->text(QAccessible::Name).isEmpty()) << widget->metaObject()->className();
        EXPECT_NE(control->role(), QAccessible::NoRole);
    }
    QAccessibleInterface* list = QAccessible::queryAccessibleInterface(window_->SubscriptionList());
    ASSERT_EQ(list->childCount(), 2);
    EXPECT_EQ(list->child(0)->text(QAccessible::Name), "Morning News (1 new)");
    feldrun::SubscribeDialog dialog;
    for (QWidget* widget : dialog.findChildren<QWidget*>()) {
        if (widget->focusPolicy()) {
            EXPECT_FALSE(QAccessible::queryAccessibleInterface(widget)->text(QAccessible::Name).isEmpty())
                << widget->metaObject()->className();
        }
    }
}

} // namespace
} // namespace talvo::test
