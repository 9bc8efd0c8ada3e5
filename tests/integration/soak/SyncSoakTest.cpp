// A running player and the sync switches adding, listing and deleting programs
// in turn, each command its own process as the desktop starts it: every
// listing must match the programs the test knows to be there, with their
// positions, and no record of a position or bookmark may be lost or doubled.
// Half the programs lie in a folder whose name is not UTF-8.
// TALVO_SOAK_SYNC_OPS sets how many operations.
#include "library/ProgramRecordLayout.h"
#include "library/ProgramStateStore.h"
#include "platform/FileNames.h"
#include "platform/InstanceChannel.h"
#include "sync/SyncProgramRecord.h"
#include "tests/integration/playback/PlayerFixture.h"
#include "tests/integration/soak/SoakSize.h"
#include "tests/integration/sync/SyncTestRegistry.h"

#include <QProcess>
#include <QThread>
#include <QtEndian>
#include <csignal>
#include <filesystem>
#include <map>
#include <random>

namespace talvo::test {
namespace {

constexpr int kMostPrograms = 24;
constexpr int kProgramSeconds = 30;

class SyncSoak : public PlayerFixture {
protected:
    void SetUp() override
    {
        PlayerFixture::SetUp();
        device_.UsePrivateRuntime();
        device_.set("TALVOPLAYER_AUDIO", "null");
        device_.set("TALVOPLAYER_CARDS", device_.path("Card1"));
        // A copy of the player of its own, so that its data file lies in the device.
        QDir().mkpath(device_.path("bin"));
        ASSERT_TRUE(
            QFile::copy(QStringLiteral(TALVO_BUILD_DIR "/bin/talvoplayer"), device_.path("bin/talvoplayer")));
        ASSERT_TRUE(QFile::link(QStringLiteral(TALVO_BUILD_DIR "/bin/Skins"), device_.path("bin/Skins")));
    }

    // Runs one sync command with its input; its exit status.
    int command(const QString& name, const QString& input)
    {
        WriteSyncValue(*registry_, SyncTransport::kInputValue, REG_SZ, RegSzBytes(input.toStdU16String()));
        QProcess process;
        process.start(device_.path("bin/talvoplayer"), {name});
        EXPECT_TRUE(process.waitForFinished(60000));
        return process.exitCode();
    }

    // A new program with a position in its side file and in its record, and one bookmark.
    // Made aside and moved onto the card whole, side file and all: a player
    // that found it half made would keep its own empty record over this one.
    QString addProgramFile(int number, std::uint32_t positionMs)
    {
        const QByteArray title = "T" + QByteArray::number(number);
        const QString staged = device_.path("staging/" + title + "/p.zq");
        WritePcmProgram(staged, "soak" + std::to_string(number), kProgramSeconds);
        {
            ProgramStateStore store(*registry_);
            ProgramFile program(staged);
            EXPECT_EQ(program.ReadMetadata(), ZQX_OK);
            program.Open(store); // false for want of a record, which is new here
            EXPECT_TRUE(program.IsOpen());
            program.Seek(positionMs);
            program.bookmarks = {{u"mark", positionMs}};
            EXPECT_TRUE(store.SaveProgramState(program));
        }
        const QByteArray author = EncodeFileName(device_.path("Card1/Music/")) +
                                  (number % 2 ? QByteArray("Caf\xe9") : QByteArray("Author"));
        std::filesystem::create_directories(author.toStdString());
        std::filesystem::rename(EncodeFileName(device_.path("staging/" + title)).toStdString(),
                                (author + "/" + title).toStdString());
        return DecodeFileName(author + "/" + title + "/p.zq");
    }

    // The programs -EnumFiles lists on the card: path and position in seconds.
    std::multimap<QString, std::uint32_t> listed()
    {
        // An empty listing writes no answer: one left by an earlier run must not pass for it.
        HKEY key = 0;
        EXPECT_EQ(registry_->OpenKey(HKEY_LOCAL_MACHINE, SyncTransport::kKey, KEY_ALL_ACCESS, &key),
                  ERROR_SUCCESS);
        registry_->DeleteValue(key, SyncTransport::kOutputValue);
        registry_->CloseKey(key);
        EXPECT_EQ(command("-EnumFiles", device_.path("Card1")), 0);
        std::optional<StoredValue> answer = ReadSyncValue(*registry_, SyncTransport::kOutputValue);
        QByteArray bytes;
        if (answer && answer->type == REG_BINARY) {
            bytes = QByteArray(reinterpret_cast<const char*>(answer->bytes.data()),
                               static_cast<qsizetype>(answer->bytes.size()));
        } else if (answer) {
            QFile file(Utf16Text(*answer));
            EXPECT_TRUE(file.open(QIODevice::ReadOnly));
            bytes = file.readAll();
        }
        std::multimap<QString, std::uint32_t> programs;
        for (qsizetype at = 0; at + static_cast<qsizetype>(SyncRecord::kSize) <= bytes.size();
             at += SyncRecord::kSize) {
            const char* record = bytes.constData() + at;
            programs.emplace(DecodeFileName(record + SyncRecord::kPathOffset),
                             qFromLittleEndian<std::uint32_t>(record + SyncRecord::kPositionOffset));
        }
        return programs;
    }

    // Every program ever added still has exactly its one bookmark.
    int checkRecords(const std::map<QString, std::uint32_t>& added)
    {
        ProgramStateStore store(*registry_);
        for (const auto& [key, positionMs] : added) {
            // The record is found by the program's key, the file may be gone.
            HKEY bookmarks = 0;
            EXPECT_EQ(registry_->OpenKey(HKEY_LOCAL_MACHINE, ProgramRecord::BookmarksKeyPath(key), KEY_READ,
                                         &bookmarks),
                      ERROR_SUCCESS)
                << key.toStdString();
            DWORD count = 0, type = 0, size = sizeof(count);
            registry_->QueryValue(bookmarks, ProgramRecord::kCount, &type,
                                  reinterpret_cast<std::uint8_t*>(&count), &size);
            registry_->CloseKey(bookmarks);
            EXPECT_EQ(count, 1u) << key.toStdString();
            DWORD stored = 0;
            EXPECT_TRUE(store.ReadPlayPosition(key, &stored));
            EXPECT_EQ(stored, positionMs) << key.toStdString();
        }
        return static_cast<int>(added.size());
    }
};

TEST_F(SyncSoak, ListingsMatchTheProgramsAddedAndDeleted)
{
    QProcess player;
    player.setProcessChannelMode(QProcess::ForwardedChannels);
    player.start(device_.path("bin/talvoplayer"), {});
    ASSERT_TRUE(player.waitForStarted());
    // The player listens once it has found its programs; a command before that would run alone.
    InstanceClient probe;
    for (int wait = 0; wait < 600 && !probe.Connect(QString::fromUtf16(kMainWindowClass), 50); ++wait)
        QThread::msleep(50);

    std::mt19937 random(std::random_device{}());
    std::map<QString, std::uint32_t> present; // path: position in ms
    std::map<QString, std::uint32_t> added;   // program key: position in ms
    std::map<std::string, int> counts;
    const int operations = SoakSize("TALVO_SOAK_SYNC_OPS", 60);
    int next = 0;
    for (int op = 1; op <= operations; ++op) {
        const int roll = std::uniform_int_distribution<int>(0, 9)(random);
        if (roll < 4 && static_cast<int>(present.size()) < kMostPrograms) {
            const std::uint32_t positionMs =
                1000 * std::uniform_int_distribution<std::uint32_t>(0, kProgramSeconds - 2)(random);
            const QString path = addProgramFile(++next, positionMs);
            ASSERT_EQ(command("-AddProgram", path), 0);
            present[path] = positionMs;
            added[QStringLiteral("soak%1").arg(next)] = positionMs;
            ++counts["added"];
        } else if (roll < 7 && !present.empty()) {
            auto victim = present.begin();
            std::advance(victim, std::uniform_int_distribution<std::size_t>(0, present.size() - 1)(random));
            ASSERT_EQ(command("-DeleteProgram", victim->first), 0);
            ASSERT_FALSE(StatusOfPath(victim->first).exists) << victim->first.toStdString();
            present.erase(victim);
            ++counts["deleted"];
        } else {
            const std::multimap<QString, std::uint32_t> programs = listed();
            ASSERT_EQ(programs.size(), present.size()) << "operation " << op;
            for (const auto& [path, positionMs] : present) {
                ASSERT_EQ(programs.count(path), 1u) << "operation " << op << ": " << path.toStdString();
                EXPECT_EQ(programs.find(path)->second, positionMs / 1000) << path.toStdString();
                ++counts["positions"];
            }
            ++counts["listings"];
        }
    }
    ASSERT_EQ(player.state(), QProcess::Running) << "the player died";
    ::kill(static_cast<pid_t>(player.processId()), SIGTERM);
    ASSERT_TRUE(player.waitForFinished(20000));
    counts["records"] = checkRecords(added);
    EXPECT_EQ(device_.messages(), QStringList());
    std::printf("operations: %d\n", operations);
    for (const auto& [name, count] : counts)
        std::printf("%s: %d\n", name.c_str(), count);
}

} // namespace
} // namespace talvo::test
