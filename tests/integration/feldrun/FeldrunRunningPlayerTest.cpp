// feldrun import beside a real running player (its own process, runtime
// folder and registry, on the null output in real time): the player is told
// of each program the import makes, and a book imported again while it plays
// keeps its place and plays on from there.  What the player holds is read
// from its registry: the positions it keeps for each program.
#include "FeedServer.h"
#include "SubscriptionStore.h"
#include "library/ProgramStateStore.h"
#include "platform/InstanceChannel.h"
#include "platform/Registry.h"
#include "playback/ProgramFile.h"
#include "settings/SettingsStore.h"
#include "tests/integration/device/PrivateBus.h"
#include "tests/support/TestDevice.h"
#include "zqx/TalvoMetadata.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QThread>
#include <gtest/gtest.h>

#include <functional>
#include <optional>

namespace talvo::test {
namespace {

const QString kBin = QStringLiteral(TALVO_BUILD_DIR "/bin/");
const QString kBooks = QStringLiteral(TALVO_BUILD_DIR "/book-fixtures/");

class FeldrunWithPlayer : public ::testing::Test {
protected:
    void SetUp() override
    {
        device_.UsePrivateRuntime();
        device_.set("TALVOPLAYER_AUDIO", QStringLiteral("null"));
        auto registry = OpenSqliteRegistry(device_.registryPath().toStdString());
        ASSERT_TRUE(registry);
        SettingsStore(*registry).SetFirstTimeRun(2);
    }
    void TearDown() override
    {
        player_.terminate();
        player_.waitForFinished(20000);
    }

    int import(const QString& book) { return feldrun({"import", "-q", book}); }

    int feldrun(const QStringList& args)
    {
        QProcess feldrun;
        feldrun.setProcessChannelMode(QProcess::MergedChannels);
        feldrun.start(kBin + "feldrun", args);
        feldrun.waitForFinished(120000);
        log_ = feldrun.readAll().toStdString();
        return feldrun.exitStatus() == QProcess::NormalExit ? feldrun.exitCode() : -1;
    }

    // The player, started the way a file manager starts it on a program.
    void startPlayer(const QString& program)
    {
        player_.setProcessChannelMode(QProcess::ForwardedChannels);
        player_.start(kBin + "talvoplayer", {"-File:" + program});
        ASSERT_TRUE(player_.waitForStarted());
        ASSERT_TRUE(waitFor([] {
            return InstanceClient().Connect(QStringLiteral("TalvoPlayerMainWnd"), 100);
        })) << "the player never listened for other instances";
    }

    // A second instance hands the program to the running one, which plays it.
    void handOver(const QString& program)
    {
        QProcess second;
        second.start(kBin + "talvoplayer", {"-File:" + program});
        ASSERT_TRUE(second.waitForFinished(30000));
        ASSERT_EQ(second.exitCode(), 0);
    }

    // The position the player keeps for a program (saved every two seconds
    // while it plays, and when it stops); none before the player first let
    // go of the program.
    std::optional<std::uint32_t> storedPosition(const QString& program)
    {
        ProgramFile entry(program);
        if (entry.ReadMetadata() != ZQX_OK)
            return std::nullopt;
        auto registry = OpenSqliteRegistry(device_.registryPath().toStdString());
        DWORD ms = 0;
        if (!ProgramStateStore(*registry).ReadPlayPosition(entry.Key(), &ms))
            return std::nullopt;
        return ms;
    }

    // Waits until the player keeps at least `ms` for the program, and answers what it keeps then.
    std::uint32_t playedTo(const QString& program, std::uint32_t ms)
    {
        std::uint32_t kept = 0;
        waitFor([&] {
            kept = storedPosition(program).value_or(0);
            return kept >= ms;
        });
        return kept;
    }

    static bool waitFor(const std::function<bool()>& condition, int timeoutMs = 30000)
    {
        QElapsedTimer clock;
        clock.start();
        while (!condition()) {
            if (clock.elapsed() > timeoutMs)
                return false;
            QThread::msleep(50);
        }
        return true;
    }

    // A session bus of the test's own, where the player offers its
    // media-player interface and feldrun asks it which program it has open.
    PrivateBus bus_{"DBUS_SESSION_BUS_ADDRESS"};
    TestDevice device_;
    QProcess player_;
    std::string log_;
};

// Stopping rewinds by one second per buffer still queued, four at most: what
// was decoded but maybe not heard.
constexpr std::uint32_t kStopRewindMs = 4000;

TEST_F(FeldrunWithPlayer, TheRunningPlayerListsNewProgramsAndABookImportedAgainKeepsItsPlace)
{
    ASSERT_EQ(import(kBooks + "long.m4b"), 0) << log_;
    const QString longBook = device_.path("music/Clara Mendes/Long Garden/Long Garden.zqx");
    const QString garden = device_.path("music/Clara Mendes/Garden Stories/Garden Stories.zqx");
    startPlayer(longBook);
    const std::uint32_t heard = playedTo(longBook, 6000);
    ASSERT_GE(heard, 6000u) << "the long book never played";

    // A new book: the player stops, lists the book and selects it.
    ASSERT_EQ(import(kBooks + "book.m4b"), 0) << log_;
    EXPECT_EQ(log_.find("not told"), std::string::npos) << log_;
    const std::uint32_t stoppedAt = storedPosition(longBook).value_or(0);
    EXPECT_GE(stoppedAt + kStopRewindMs, heard);

    // The long book handed over plays on from there; letting go of the new
    // book leaves its record, which only a player that selected it writes.
    handOver(longBook);
    const std::uint32_t heardAgain = playedTo(longBook, stoppedAt + 6000);
    ASSERT_GE(heardAgain, stoppedAt + 6000) << "the long book did not play on from " << stoppedAt << " ms";
    EXPECT_TRUE(storedPosition(garden)) << "the running player never selected the new book";

    // Imported again while it plays: its place is kept, not reset.
    ASSERT_EQ(import(kBooks + "long.m4b"), 0) << log_;
    const std::uint32_t reimportedAt = storedPosition(longBook).value_or(0);
    EXPECT_GE(reimportedAt + kStopRewindMs, heardAgain);
    EXPECT_GT(reimportedAt, stoppedAt);

    // The new file plays on from there.
    handOver(longBook);
    EXPECT_GE(playedTo(longBook, reimportedAt + 2000), reimportedAt + 2000)
        << "the program imported again did not play on from " << reimportedAt << " ms";
    EXPECT_EQ(player_.state(), QProcess::Running);
    EXPECT_TRUE(device_.messages().isEmpty()) << device_.messages().join('\n').toStdString();
}

// A daily programme's feed with one episode more each day, served on
// 127.0.0.1; the episodes are the long book, so each plays a while.
class FeldrunDailyWithPlayer : public FeldrunWithPlayer {
protected:
    void SetUp() override
    {
        FeldrunWithPlayer::SetUp();
        if (HasFatalFailure())
            return;
        ASSERT_TRUE(server_.running());
        QFile book(kBooks + "long.m4b");
        ASSERT_TRUE(book.open(QIODevice::ReadOnly));
        server_.put(QStringLiteral("/long.m4b"), book.readAll());
        putDays(2);
    }

    void putDays(int days)
    {
        QString items;
        for (int day = 1; day <= days; ++day)
            items += QStringLiteral("<item><title>Day %1</title><guid>day-%1</guid><pubDate>0%1 Nov 2026 "
                                    "06:00:00 GMT</pubDate><enclosure url=\"%2\" type=\"audio/mp4\"/></item>")
                         .arg(day)
                         .arg(server_.url("/long.m4b").toString());
        server_.put(
            QStringLiteral("/daily.xml"),
            ("<rss version=\"2.0\"><channel><title>Daily</title>" + items + "</channel></rss>").toUtf8());
    }

    int subscribeKeepingTwo()
    {
        return feldrun({"subscribe", "--keep", "2", server_.url("/daily.xml").toString()});
    }

    QString episode(int day) const
    {
        return device_.path(QStringLiteral("music/Daily/2026-11-0%1 Day %1/2026-11-0%1 Day %1.zqx").arg(day));
    }

    QString current()
    {
        return SettingsStore(*OpenSqliteRegistry(device_.registryPath().toStdString())).GetLastProgram();
    }

    void keep(std::uint32_t n)
    {
        auto registry = OpenSqliteRegistry(device_.registryPath().toStdString());
        feldrun::SubscriptionStore store(*registry);
        auto daily = store.Find(QStringLiteral("Daily"));
        ASSERT_TRUE(daily);
        daily->keep = n;
        ASSERT_TRUE(store.Save(*daily));
    }

    feldrun::test::FeedServer server_;
};

TEST_F(FeldrunDailyWithPlayer, EpisodesComeInToTheRunningPlayerAndOldOnesLeaveItButNeverTheOneItHasOpen)
{
    ASSERT_EQ(subscribeKeepingTwo(), 0) << log_;
    CTalvoMetadata meta; // an untitled file's one section is named by the episode
    ASSERT_EQ(meta.OpenZQXFile(episode(1).toStdU16String()), ZQX_OK);
    EXPECT_EQ(meta.GetSectionTitle(0), u"Day 1");
    // The player records a program as its current one ("Last Program") when it
    // opens one it has a place stored for; the listener has heard day 1 before.
    SettingsStore(*OpenSqliteRegistry(device_.registryPath().toStdString())).SetLastProgram(episode(1));
    startPlayer(episode(1));
    ASSERT_GE(playedTo(episode(1), 2000), 2000u) << "the first episode never played";

    // A new day: the running player is told, and opens it.  Day 1 is beyond
    // the two kept, but still the player's current program: it stays.
    putDays(3);
    ASSERT_EQ(feldrun({"update"}), 0) << log_;
    EXPECT_EQ(log_.find("not told"), std::string::npos) << log_;
    EXPECT_TRUE(QFile::exists(episode(1)));
    handOver(episode(2));
    EXPECT_TRUE(waitFor([&] { return storedPosition(episode(3)).has_value(); }))
        << "the running player never opened the new episode";

    // Once the listener has moved on, the next update takes day 1 out of the
    // player and off the device.
    handOver(episode(3));
    ASSERT_TRUE(waitFor([&] { return current() == episode(3); })) << current().toStdString();
    ASSERT_EQ(feldrun({"update"}), 0) << log_;
    EXPECT_FALSE(QFile::exists(episode(1)));
    EXPECT_FALSE(QDir(QFileInfo(episode(1)).path()).exists());

    // Keeping one while the listener is back on day 2: day 2 stays and plays on.
    handOver(episode(2));
    ASSERT_TRUE(waitFor([&] { return current() == episode(2); })) << current().toStdString();
    const std::uint32_t heard = playedTo(episode(2), 1000);
    keep(1);
    ASSERT_EQ(feldrun({"update"}), 0) << log_;
    EXPECT_TRUE(QFile::exists(episode(2)));
    EXPECT_GE(playedTo(episode(2), heard + 2000), heard + 2000) << "day 2 stopped playing";

    // Moved on to day 3, the next update removes day 2.
    handOver(episode(3));
    ASSERT_TRUE(waitFor([&] { return current() == episode(3); }));
    ASSERT_EQ(feldrun({"update"}), 0) << log_;
    EXPECT_FALSE(QFile::exists(episode(2)));
    EXPECT_TRUE(QFile::exists(episode(3)));
    EXPECT_EQ(player_.state(), QProcess::Running);
    EXPECT_TRUE(device_.messages().isEmpty()) << device_.messages().join('\n').toStdString();
}

TEST_F(FeldrunDailyWithPlayer, AnEpisodeOpenedForTheFirstTimeStaysWhileThePlayerHasItOpen)
{
    ASSERT_EQ(subscribeKeepingTwo(), 0) << log_;

    // Day 1, never heard before, plays: the player has no place stored for it
    // when it opens it, so it does not become its "Last Program".
    startPlayer(episode(1));
    const std::uint32_t heard = playedTo(episode(1), 2000);
    ASSERT_GE(heard, 2000u) << "day 1 never played";
    ASSERT_NE(current(), episode(1));

    // Keeping one puts day 1 beyond what is kept; the player says it has it open.
    keep(1);
    ASSERT_EQ(feldrun({"update"}), 0) << log_;
    EXPECT_TRUE(QFile::exists(episode(1)));
    EXPECT_GE(playedTo(episode(1), heard + 2000), heard + 2000) << "day 1 stopped playing";

    // On day 2, the next update takes day 1 away.
    handOver(episode(2));
    ASSERT_TRUE(waitFor([&] { return storedPosition(episode(2)).has_value(); }));
    ASSERT_EQ(feldrun({"update"}), 0) << log_;
    EXPECT_FALSE(QFile::exists(episode(1)));
    EXPECT_TRUE(QFile::exists(episode(2)));
    EXPECT_EQ(player_.state(), QProcess::Running);
}

} // namespace
} // namespace talvo::test
