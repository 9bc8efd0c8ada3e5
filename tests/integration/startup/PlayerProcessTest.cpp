// The real player executable in a temporary device: the hand-over to a running
// player, and a listener's position and bookmarks kept across a restart.
#include "library/ProgramStateStore.h"
#include "platform/InstanceChannel.h"
#include "tests/integration/playback/PlayerFixture.h"

#include <QProcess>
#include <QThread>
#include <csignal>

namespace talvo::test {
namespace {

const QString kPlayer = QStringLiteral(TALVO_BUILD_DIR "/bin/talvoplayer");

class PlayerProcess : public ::testing::Test {
protected:
    void SetUp() override
    {
        device_.UsePrivateRuntime();
        device_.set("TALVOPLAYER_AUDIO", "null");
    }

    void TearDown() override
    {
        for (QProcess* process : {&first_, &second_}) {
            if (process->state() != QProcess::NotRunning) {
                process->kill();
                process->waitForFinished();
            }
        }
    }

    // Starts a player and waits until it answers other processes.
    void startFirst(const QStringList& arguments = {})
    {
        first_.setProcessChannelMode(QProcess::ForwardedChannels);
        first_.start(kPlayer, arguments);
        ASSERT_TRUE(first_.waitForStarted());
        for (int i = 0; i < 200; ++i) {
            if (InstanceClient().Connect(QStringLiteral("TalvoPlayerMainWnd"), 100))
                return;
            QThread::msleep(50);
        }
        FAIL() << "the player never listened for other instances";
    }

    // Ends the first player the way a session's end does.
    void terminateFirst()
    {
        ::kill(static_cast<pid_t>(first_.processId()), SIGTERM);
        ASSERT_TRUE(first_.waitForFinished(20000));
        EXPECT_EQ(first_.exitStatus(), QProcess::NormalExit);
    }

    std::optional<QString> readString(const std::u16string& key, const std::u16string& name)
    {
        auto registry = OpenSqliteRegistry(device_.registryPath().toStdString());
        HKEY handle = 0;
        if (registry->OpenKey(HKEY_LOCAL_MACHINE, key, KEY_READ, &handle) != ERROR_SUCCESS)
            return std::nullopt;
        std::vector<std::uint8_t> data(4096);
        DWORD size = static_cast<DWORD>(data.size()), type = 0;
        RegStatus status = registry->QueryValue(handle, name, &type, data.data(), &size);
        registry->CloseKey(handle);
        if (status != ERROR_SUCCESS)
            return std::nullopt;
        if (type == REG_DWORD)
            return QString::number(data[0] | data[1] << 8 | data[2] << 16 | std::uint32_t{data[3]} << 24);
        return QString::fromStdU16String(RegSzText(data.data(), size));
    }

    void keepRecord(const QString& path)
    {
        auto registry = OpenSqliteRegistry(device_.registryPath().toStdString());
        ProgramStateStore store(*registry);
        ProgramFile entry(path);
        ASSERT_EQ(entry.ReadMetadata(), ZQX_OK);
        ASSERT_TRUE(store.SaveProgramState(entry));
    }

    TestDevice device_;
    QProcess first_;
    QProcess second_;
};

TEST_F(PlayerProcess, SecondInstanceHandsItsFileToTheRunningPlayerAndExitsZero)
{
    const QString a = WritePcmProgram(device_.path("music/Author/A/a.zq"), "a", 30);
    const QString b = WritePcmProgram(device_.path("music/Author/B/b.zq"), "b", 30);
    // Both were listened to before: an open counts as done, and names the last
    // program, only when the program's record can be read.
    keepRecord(a);
    keepRecord(b);
    startFirst();
    // The player answers before its initial load has run; wait for that.
    for (int i = 0; i < 100 && readString(u"Software\\Talvo", u"Last Program") != a; ++i)
        QThread::msleep(50);
    EXPECT_EQ(readString(u"Software\\Talvo", u"Last Program"), a);

    second_.start(kPlayer, {QStringLiteral("-File:") + b});
    ASSERT_TRUE(second_.waitForFinished(20000));
    EXPECT_EQ(second_.exitCode(), 0);
    // The running player opened the file, which makes it the last program.
    EXPECT_EQ(readString(u"Software\\Talvo", u"Last Program"), b);

    // A missing file is dropped: the player is only brought to the front.
    second_.start(kPlayer, {QStringLiteral("-File:") + device_.path("gone.zq")});
    ASSERT_TRUE(second_.waitForFinished(20000));
    EXPECT_EQ(second_.exitCode(), 0);
    EXPECT_EQ(readString(u"Software\\Talvo", u"Last Program"), b);
    terminateFirst();
}

TEST_F(PlayerProcess, PositionAndBookmarksSurviveARestart)
{
    const QString path = WritePcmProgram(device_.path("music/Author/Book/book.zq"), "book", 120);
    {
        // Bookmarks the listener made in an earlier session.
        auto registry = OpenSqliteRegistry(device_.registryPath().toStdString());
        ProgramStateStore store(*registry);
        ProgramFile entry(path);
        ASSERT_EQ(entry.ReadMetadata(), ZQX_OK);
        entry.bookmarks = {{u"Opening", 5000}, {u"Storm", 61000}};
        ASSERT_TRUE(store.SaveProgramState(entry));
    }
    startFirst({QStringLiteral("-File:") + path});
    QThread::msleep(3000); // plays at real time on the null output
    terminateFirst();

    const auto played = readString(u"SOFTWARE\\Talvo\\AudioData\\book", u"play_pos");
    ASSERT_TRUE(played.has_value());
    const std::uint32_t position = played->toUInt();
    // Stopping rewinds by one second for each of the four queued buffers of two seconds.
    EXPECT_GT(position, 0u);
    EXPECT_LT(position, 12000u);
    const std::u16string bookmarks = u"SOFTWARE\\Talvo\\AudioData\\book\\Bookmarks";
    EXPECT_EQ(readString(bookmarks, u"Count"), "2");
    EXPECT_EQ(readString(bookmarks + u"\\Bookmark0", u"Name"), "Opening");
    EXPECT_EQ(readString(bookmarks + u"\\Bookmark0", u"Time Offset"), "5000");
    EXPECT_EQ(readString(bookmarks + u"\\Bookmark1", u"Name"), "Storm");
    EXPECT_EQ(readString(bookmarks + u"\\Bookmark1", u"Time Offset"), "61000");

    // The next session reopens the program where it was left and keeps it there.
    startFirst();
    terminateFirst();
    EXPECT_EQ(readString(u"SOFTWARE\\Talvo\\AudioData\\book", u"play_pos"), QString::number(position));
    EXPECT_EQ(readString(bookmarks, u"Count"), "2");
}

TEST_F(PlayerProcess, OfPlayersStartedAtTheSameMomentExactlyOneStaysUp)
{
    WritePcmProgram(device_.path("music/Author/A/a.zq"), "a", 30);
    OpenSqliteRegistry(device_.registryPath().toStdString()); // the store exists, as on a used device
    constexpr int kRounds = 4;
    constexpr int kPlayers = 5;
    for (int round = 0; round < kRounds; ++round) {
        std::vector<std::unique_ptr<QProcess>> players;
        for (int i = 0; i < kPlayers; ++i) {
            players.push_back(std::make_unique<QProcess>());
            players.back()->start(kPlayer, QStringList{});
        }
        // Those that hand over exit at once; the player stays and answers.
        const auto finished = [&] {
            return std::count_if(players.begin(), players.end(),
                                 [](const auto& p) { return p->state() == QProcess::NotRunning; });
        };
        for (int wait = 0; wait < 600; ++wait) {
            if (finished() >= kPlayers - 1 &&
                InstanceClient().Connect(QStringLiteral("TalvoPlayerMainWnd"), 100))
                break;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
            QThread::msleep(50);
        }
        const auto stayingCount = kPlayers - finished();
        EXPECT_EQ(stayingCount, 1) << "round " << round;
        for (auto& player : players) {
            if (player->state() == QProcess::NotRunning) {
                EXPECT_EQ(player->exitCode(), 0) << player->readAllStandardError().toStdString();
            }
        }
        for (auto& player : players) {
            if (player->state() != QProcess::NotRunning) {
                ::kill(static_cast<pid_t>(player->processId()), SIGTERM);
                EXPECT_TRUE(player->waitForFinished(20000));
            }
        }
        if (stayingCount != 1)
            break;
    }
}

} // namespace
} // namespace talvo::test
