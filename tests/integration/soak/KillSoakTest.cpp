// A player killed at random moments while it saves bookmarks, its position and
// Preferences values: after every kill the store opens, and every value is the
// one it had or the one being saved, never a mix or nothing.  The driver says
// what it begins and finishes saving; TALVO_SOAK_KILLS sets how many kills.
#include "app/CMainFrame.h"
#include "library/ProgramRecordLayout.h"
#include "library/ProgramStateStore.h"
#include "platform/InstanceChannel.h"
#include "tests/integration/playback/PlayerFixture.h"
#include "tests/integration/soak/SoakSize.h"

#include <QProcess>
#include <QThread>
#include <csignal>
#include <map>
#include <random>

namespace talvo::test {
namespace {

struct SavedValue {
    QString done;
    std::optional<QString> begun;
};

class KillSoak : public PlayerFixture {
protected:
    // The driver's story of one run, on top of what was stored before it.
    void readStory(const QByteArray& output)
    {
        for (const QByteArray& line : output.split('\n')) {
            const QList<QByteArray> words = line.split(' ');
            if (words.size() < 2 || (words[0] != "begin" && words[0] != "done"))
                continue;
            const QString value = words.size() > 2 ? QString::fromUtf8(words[2]) : QString();
            SavedValue& saved = values_[words[1].toStdString()];
            if (words[0] == "begin") {
                saved.begun = value;
                ++begun_;
            } else {
                saved.done = value;
                saved.begun.reset();
            }
        }
    }

    // A program's stored bookmarks as the driver writes them, and its position.
    static QString storedBookmarks(Registry& registry, const QString& path, DWORD* position)
    {
        ProgramStateStore store(registry);
        ProgramFile program(path);
        EXPECT_EQ(program.ReadMetadata(), ZQX_OK);
        store.LoadProgramState(program);
        store.ReadPlayPosition(program.Key(), position);
        QStringList bookmarks;
        for (const Bookmark& bookmark : program.bookmarks)
            bookmarks
                << QStringLiteral("%1@%2").arg(QString::fromStdU16String(bookmark.name)).arg(bookmark.timeMs);
        return bookmarks.join(QLatin1Char(','));
    }

    // What the store holds now, by the driver's names.
    std::map<std::string, QString> stored(Registry& registry)
    {
        SettingsStore settings(registry);
        DWORD position = 0;
        const QString bookmarks = storedBookmarks(registry, program_, &position);
        return {{"volume", QString::number(settings.GetVolume())},
                {"jumpback", QString::number(settings.GetJumpBack())},
                {"position", QString::number(position)},
                {"bookmarks", bookmarks}};
    }

    QString program_;
    std::map<std::string, SavedValue> values_;
    int begun_ = 0;
};

TEST_F(KillSoak, EveryValueIsItsOldOrItsNewAfterEachKill)
{
    program_ = WritePcmProgram(musicPath("Author/Book/p.zq"), "kill-soak", 600);
    SettingsStore(*registry_).SetVolume(1000);
    SettingsStore(*registry_).SetJumpBack(5);
    for (const auto& [name, value] : stored(*registry_))
        values_[name].done = value;
    registry_.reset();

    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int> runMs(0, 250);
    const int kills = SoakSize("TALVO_SOAK_KILLS", 25);
    int checked = 0;
    int caughtSaving = 0;
    for (int kill = 1; kill <= kills; ++kill) {
        QProcess driver;
        driver.start(QStringLiteral(TALVO_BUILD_DIR "/tests/soak_save_driver"),
                     {device_.path("app"), QString::number(random())});
        ASSERT_TRUE(driver.waitForStarted());
        QByteArray output;
        while (!output.contains("ready\n") && driver.waitForReadyRead(30000))
            output += driver.readAllStandardOutput();
        ASSERT_TRUE(output.contains("ready\n"))
            << "kill " << kill << ": the driver did not start, exit " << driver.exitCode();
        QThread::msleep(static_cast<unsigned long>(runMs(random)));
        ::kill(static_cast<pid_t>(driver.processId()), SIGKILL);
        ASSERT_TRUE(driver.waitForFinished(20000));
        readStory(output + driver.readAllStandardOutput());

        RegStatus status = ERROR_SUCCESS;
        std::unique_ptr<Registry> registry =
            OpenSqliteRegistry(device_.registryPath().toStdString(), &status);
        ASSERT_TRUE(registry) << "kill " << kill << ": the store does not open, status " << status;
        const std::map<std::string, QString> now = stored(*registry);
        // Position and bookmarks are one save: new bookmarks come with the new position.
        const SavedValue& bookmarks = values_["bookmarks"];
        const SavedValue& position = values_["position"];
        if (bookmarks.begun && *bookmarks.begun != bookmarks.done && now.at("bookmarks") == *bookmarks.begun)
            ASSERT_EQ(now.at("position"), position.begun.value_or(position.done)) << "kill " << kill;
        for (auto& [name, saved] : values_) {
            const QString& value = now.at(name);
            ASSERT_TRUE(value == saved.done || value == saved.begun)
                << "kill " << kill << ": " << name << " is " << value.toStdString() << ", not "
                << saved.done.toStdString() << " or " << saved.begun.value_or("(none)").toStdString();
            caughtSaving += saved.begun ? 1 : 0;
            saved = {value, std::nullopt};
            ++checked;
        }
    }
    std::printf("kills: %d\nvalues checked: %d\nsaves begun: %d\nvalues caught mid-save: %d\n", kills,
                checked, begun_, caughtSaving);
}

// The real player, killed while -File: hand-overs switch it between two
// programs, each switch saving the program it leaves: the store opens, "Last
// Program" names one of the two, and each bookmark list is whole.
// TALVO_SOAK_PLAYER_KILLS sets how many kills.
TEST_F(KillSoak, TheRealPlayerKilledWhileSwitchingProgramsKeepsEveryRecordWhole)
{
    device_.UsePrivateRuntime();
    device_.set("TALVOPLAYER_AUDIO", "null:20");
    const QStringList programs{WritePcmProgram(musicPath("Author/A/a.zq"), "kill-a", 600),
                               WritePcmProgram(musicPath("Author/B/b.zq"), "kill-b", 600)};
    std::map<QString, QString> lists;
    for (const QString& path : programs) {
        ProgramStateStore store(*registry_);
        ProgramFile program(path);
        ASSERT_EQ(program.ReadMetadata(), ZQX_OK);
        program.Open(store);
        for (std::uint32_t i = 1; i <= 8; ++i)
            program.bookmarks.push_back({u"mark " + QString::number(i).toStdU16String(), i * 11000});
        ASSERT_TRUE(store.SaveProgramState(program));
        DWORD position = 0;
        lists[path] = storedBookmarks(*registry_, path, &position);
    }
    registry_.reset();

    const QString player = QStringLiteral(TALVO_BUILD_DIR "/bin/talvoplayer");
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int> pauseMs(0, 400);
    const int rounds = SoakSize("TALVO_SOAK_PLAYER_KILLS", 4);
    int kills = 0;
    int switches = 0;
    for (int kill = 1; kill <= rounds; ++kill) {
        QProcess running;
        running.start(player, {"-File:" + programs[kill % 2]});
        ASSERT_TRUE(running.waitForStarted());
        // Listening: a hand-over sent before would start a player of its own.
        InstanceClient probe;
        for (int wait = 0; wait < 600 && !probe.Connect(QString::fromUtf16(kMainWindowClass), 50); ++wait)
            QThread::msleep(50);
        // Hand-overs in flight when the kill comes, as a file manager sends them.
        std::vector<std::unique_ptr<QProcess>> senders;
        for (int i = std::uniform_int_distribution<int>(1, 4)(random); i > 0; --i) {
            senders.push_back(std::make_unique<QProcess>());
            senders.back()->start(player, {"-File:" + programs[(kill + i) % 2]});
            QThread::msleep(static_cast<unsigned long>(pauseMs(random)));
            ++switches;
        }
        ::kill(static_cast<pid_t>(running.processId()), SIGKILL);
        ASSERT_TRUE(running.waitForFinished(20000));
        ++kills;
        // A hand-over that found no player any more becomes the player: killed too.
        for (const auto& sender : senders) {
            if (!sender->waitForFinished(10000)) {
                ::kill(static_cast<pid_t>(sender->processId()), SIGKILL);
                ASSERT_TRUE(sender->waitForFinished(20000));
                ++kills;
            }
        }

        RegStatus status = ERROR_SUCCESS;
        std::unique_ptr<Registry> registry =
            OpenSqliteRegistry(device_.registryPath().toStdString(), &status);
        ASSERT_TRUE(registry) << "kill " << kill << ": the store does not open, status " << status;
        EXPECT_TRUE(programs.contains(SettingsStore(*registry).GetLastProgram())) << "kill " << kill;
        for (const QString& path : programs) {
            DWORD position = 0;
            ASSERT_EQ(storedBookmarks(*registry, path, &position), lists[path]) << "kill " << kill;
            EXPECT_LE(position, 600000u);
        }
    }
    std::printf("player kills: %d\nswitches sent: %d\nrecords checked: %d\n", kills, switches, rounds * 3);
}

} // namespace
} // namespace talvo::test
