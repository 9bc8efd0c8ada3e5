// The real player executable in a temporary device: the hand-over to a running
// player, and a listener's position and bookmarks kept across a restart.
#include "base/StringTable.h"
#include "library/ProgramStateStore.h"
#include "platform/InstanceChannel.h"
#include "platform/SystemError.h"
#include "tests/integration/playback/PlayerFixture.h"

#include <QProcess>
#include <QRegularExpression>
#include <QThread>
#include <cerrno>
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

    std::optional<QString> readString(const std::u16string& key, const std::u16string& name,
                                      const QString& store = {})
    {
        auto registry = OpenSqliteRegistry((store.isEmpty() ? device_.registryPath() : store).toStdString());
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

// The player with its store alone on a small file system, in a mount namespace
// of its own (unshare: no privilege needed where user namespaces are allowed).
// The test fills that file system through /proc/PID/root while the player
// plays, then ends the player, whose saves at exit find the disk full; what
// the file system holds then is copied out for the test to read.
constexpr char kSmallDiskScript[] = R"sh(
store="$1"; seed="$2"; out="$3"; pidfile="$4"; shift 4
cp -a "$store"/. "$seed"/ && mount -t tmpfs -o size=1m tmpfs "$store" && cp -a "$seed"/. "$store"/ || exit 99
"$@" &
echo $! > "$pidfile"
wait $!
status=$?
cp -a "$store"/. "$out"/
exit $status
)sh";

pid_t ReadPid(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? static_cast<pid_t>(file.readAll().trimmed().toInt()) : 0;
}

// Writes into folder until the file system holding it is full.
bool FillFileSystem(const QString& folder)
{
    QFile filler(folder + QStringLiteral("/filler"));
    if (!filler.open(QIODevice::WriteOnly))
        return false;
    const QByteArray block(4096, 'x');
    while (filler.write(block) == block.size() && filler.flush()) {
    }
    return filler.error() != QFileDevice::NoError;
}

TEST_F(PlayerProcess, ASaveOnAFullDiskIsToldAndWhatWasSavedBeforeIsKept)
{
    if (QProcess::execute(QStringLiteral("unshare"), {QStringLiteral("-rm"), QStringLiteral("true")}) != 0)
        GTEST_SKIP() << "no user and mount namespaces here (unshare -rm)";
    const QString path = WritePcmProgram(device_.path("music/Author/Book/book.zq"), "book", 120);
    const QString store = device_.path("store/registry.db");
    for (const char* folder : {"store", "seed", "after"})
        QDir().mkpath(device_.path(folder));
    device_.set("TALVOPLAYER_REGISTRY", store);
    {
        auto registry = OpenSqliteRegistry(store.toStdString());
        ProgramStateStore earlier(*registry);
        ProgramFile entry(path);
        ASSERT_EQ(entry.ReadMetadata(), ZQX_OK);
        entry.bookmarks = {{u"Opening", 5000}, {u"Storm", 61000}};
        ASSERT_TRUE(earlier.SaveProgramState(entry));
    }
    QProcess wrapper;
    wrapper.setProcessChannelMode(QProcess::ForwardedChannels);
    const QString pidFile = device_.path("player.pid");
    wrapper.start(QStringLiteral("unshare"),
                  {QStringLiteral("-rm"), QStringLiteral("sh"), QStringLiteral("-c"),
                   QString::fromLatin1(kSmallDiskScript), QStringLiteral("sh"), device_.path("store"),
                   device_.path("seed"), device_.path("after"), pidFile, kPlayer,
                   QStringLiteral("-File:") + path});
    ASSERT_TRUE(wrapper.waitForStarted());
    for (int i = 0; i < 200 && !InstanceClient().Connect(QStringLiteral("TalvoPlayerMainWnd"), 100); ++i)
        QThread::msleep(50);
    const pid_t player = ReadPid(pidFile);
    ASSERT_NE(player, 0) << "the player did not start on the small disk";
    QThread::msleep(1500); // playing, with the position kept as it goes
    ASSERT_TRUE(FillFileSystem(QStringLiteral("/proc/%1/root%2").arg(player).arg(device_.path("store"))));
    ::kill(player, SIGTERM);
    ASSERT_TRUE(wrapper.waitForFinished(30000));
    EXPECT_EQ(wrapper.exitCode(), 0);

    const QString told =
        FormatString(Str::ProgramStateNotSaved, "Program book",
                     SystemErrorFromErrno(ENOSPC).text.toUtf8().constData(), ERROR_DISK_FULL);
    EXPECT_TRUE(device_.messages().filter(told).size() == 1) << device_.messages().join('\n').toStdString();
    const QString after = device_.path("after/registry.db");
    const std::u16string bookmarks = u"SOFTWARE\\Talvo\\AudioData\\book\\Bookmarks";
    EXPECT_EQ(readString(bookmarks, u"Count", after), "2");
    EXPECT_EQ(readString(bookmarks + u"\\Bookmark0", u"Name", after), "Opening");
    EXPECT_EQ(readString(bookmarks + u"\\Bookmark1", u"Time Offset", after), "61000");
    EXPECT_TRUE(readString(u"SOFTWARE\\Talvo\\AudioData\\book", u"play_pos", after).has_value());
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

// Nothing the first frame does not need is loaded before it: Qt guesses an
// image's format by loading every image plugin, and the player's own bitmaps
// and the menu bar must not make it guess.
TEST_F(PlayerProcess, TheFirstFrameLoadsNoImagePlugin)
{
    WritePcmProgram(device_.path("music/Author/A/a.zq"), "a", 30);
    device_.set("TALVOPLAYER_EXIT_AFTER_FIRST_PAINT", QStringLiteral("1"));
    device_.set("QT_DEBUG_PLUGINS", QStringLiteral("1"));
    // Twice: the first start decodes the skin, the second finds it decoded.
    for (int start = 0; start < 2; ++start) {
        QProcess player;
        player.setProcessChannelMode(QProcess::MergedChannels);
        player.start(kPlayer, {});
        ASSERT_TRUE(player.waitForFinished(30000));
        const QString output = QString::fromUtf8(player.readAll());
        // The probe's line of times ends what came before the first frame.
        static const QRegularExpression kTimes(QStringLiteral("^[0-9.]+ [0-9.]+$"),
                                               QRegularExpression::MultilineOption);
        const qsizetype painted = output.indexOf(kTimes);
        ASSERT_GE(painted, 0) << output.toStdString();
        const QString beforeFirstFrame = output.left(painted);
        EXPECT_TRUE(beforeFirstFrame.contains(QStringLiteral("loaded library")))
            << "Qt no longer says which plugins it loads";
        EXPECT_FALSE(beforeFirstFrame.contains(
            QRegularExpression(QStringLiteral("imageformats/[^\n]* loaded library"))))
            << start << beforeFirstFrame.toStdString();
    }
}

} // namespace
} // namespace talvo::test
