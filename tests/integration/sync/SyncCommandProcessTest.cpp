// The desktop-sync commands as the desktop drives them: the real executable
// started with a switch in a temporary device, its input written to "_DataIn"
// beforehand, its answer read from "_Data", the data file and standard output.
#include "library/ProgramRecordLayout.h"
#include "platform/InstanceChannel.h"
#include "sync/SyncProgramRecord.h"
#include "tests/integration/playback/PlayerFixture.h"
#include "tests/integration/sync/SyncTestRegistry.h"

#include <QProcess>
#include <QRegularExpression>
#include <QThread>
#include <QtEndian>

namespace talvo::test {
namespace {

const QString kPlayer = QStringLiteral(TALVO_BUILD_DIR "/bin/talvoplayer");

struct CommandRun {
    int exitCode = -1;
    QString printed;
};

class SyncCommandProcess : public ::testing::Test {
protected:
    void SetUp() override
    {
        device_.UsePrivateRuntime();
        device_.set("TALVOPLAYER_PLATFORM", "PocketPC");
        // A copy of the executable of its own, so that its data file lies in the device.
        QDir().mkpath(device_.path("bin"));
        ASSERT_TRUE(QFile::copy(kPlayer, executable()));
        // Its skins beside it, as in the build tree, for when it runs as the player.
        ASSERT_TRUE(QFile::link(QStringLiteral(TALVO_BUILD_DIR "/bin/Skins"), device_.path("bin/Skins")));
        registry_ = OpenSqliteRegistry(device_.registryPath().toStdString());
    }

    QString executable() const { return device_.path("bin/talvoplayer"); }

    void setInput(const QString& path)
    {
        WriteSyncValue(*registry_, SyncTransport::kInputValue, REG_SZ, RegSzBytes(path.toStdU16String()));
    }

    // Runs the command, answering requests to a player while it runs when one listens here.
    CommandRun run(const QStringList& arguments)
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::SeparateChannels);
        process.start(executable(), arguments);
        EXPECT_TRUE(process.waitForStarted());
        while (!process.waitForFinished(20))
            QCoreApplication::processEvents();
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput())};
    }

    std::optional<StoredValue> answer() { return ReadSyncValue(*registry_, SyncTransport::kOutputValue); }

    QString card(const QString& name)
    {
        QDir().mkpath(device_.path("cards/" + name));
        return device_.path("cards/" + name);
    }

    void keepPosition(const QString& path, std::uint32_t ms)
    {
        ProgramFile entry(path);
        ASSERT_EQ(entry.ReadMetadata(), ZQX_OK);
        HKEY key = 0;
        ASSERT_EQ(registry_->CreateKey(HKEY_LOCAL_MACHINE, ProgramRecord::ProgramKeyPath(entry.Key()),
                                       KEY_ALL_ACCESS, &key),
                  ERROR_SUCCESS);
        std::uint8_t bytes[4];
        qToLittleEndian(ms, bytes);
        registry_->SetValue(key, ProgramRecord::kPlayPos, REG_DWORD, bytes, 4);
        registry_->CloseKey(key);
    }

    TestDevice device_;
    std::unique_ptr<Registry> registry_;
};

QString textAt(const std::uint8_t* record, std::size_t offset)
{
    return QString::fromLocal8Bit(reinterpret_cast<const char*>(record + offset));
}

std::uint32_t u32At(const std::uint8_t* record, std::size_t offset)
{
    return qFromLittleEndian<std::uint32_t>(record + offset);
}

TEST_F(SyncCommandProcess, DescriptiveCommandsAnswerInTheirTextForms)
{
    device_.set("TALVOPLAYER_OEM_INFO", "Acme X-2 {b}");
    CommandRun result = run({"-GetDeviceManufacturer"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.printed, "0x00000000\n");
    ASSERT_TRUE(answer());
    EXPECT_EQ(answer()->type, REG_BINARY);
    EXPECT_EQ(Utf16Text(*answer()), "Acme_X_2__b_");
    EXPECT_EQ(answer()->bytes.size(), 13u * 2) << "the terminator belongs to the answer";

    EXPECT_EQ(run({"/GetAPVersion"}).exitCode, 0);
    EXPECT_EQ(Utf16Text(*answer()), "5,5,0,10;0");
    device_.set("TALVOPLAYER_PLATFORM", "Smartphone");
    run({"-GetAPVersion"});
    EXPECT_EQ(Utf16Text(*answer()), "5,5,0,10;1");

    // No cards: the main-memory part alone; with cards one part per card.
    run({"-GetStorageInfo"});
    QString text = QString::fromLocal8Bit(reinterpret_cast<const char*>(answer()->bytes.data()));
    EXPECT_EQ(answer()->bytes.size(), static_cast<std::size_t>(text.toLocal8Bit().size() + 1));
    EXPECT_TRUE(QRegularExpression("^\\\\\\|-?\\d+\\|-?\\d+\\|$").match(text).hasMatch())
        << text.toStdString();
    device_.set("TALVOPLAYER_CARDS", card("Storage Card") + ":" + card("SD2"));
    run({"-GetStorageInfo"});
    text = QString::fromLocal8Bit(reinterpret_cast<const char*>(answer()->bytes.data()));
    EXPECT_TRUE(
        QRegularExpression(
            "^\\\\\\|-?\\d+\\|-?\\d+\\|\\\\Storage Card\\|-?\\d+\\|-?\\d+\\|\\\\SD2\\|-?\\d+\\|-?\\d+\\|$")
            .match(text)
            .hasMatch())
        << text.toStdString();

    // More cards than the 512-byte text holds: whole parts only, never past it.
    QStringList many;
    for (int i = 0; i < 12; ++i)
        many << card(QStringLiteral("Card %1 with a long volume label for the test").arg(i));
    device_.set("TALVOPLAYER_CARDS", many.join(':'));
    EXPECT_EQ(run({"-GetStorageInfo"}).exitCode, 0);
    ASSERT_LE(answer()->bytes.size(), 512u);
    EXPECT_EQ(answer()->bytes.back(), 0);
    text = QString::fromLocal8Bit(reinterpret_cast<const char*>(answer()->bytes.data()));
    EXPECT_GT(answer()->bytes.size(), 400u) << "as many parts as fit";
    EXPECT_EQ(text.count('|') % 3, 0);
    EXPECT_TRUE(text.endsWith('|'));
    EXPECT_TRUE(device_.messages().isEmpty());
}

TEST_F(SyncCommandProcess, EnumFilesListsRecordsWithPositionsBySyncRule)
{
    const QString root = card("Card1");
    device_.set("TALVOPLAYER_CARDS", root);
    // With no folder the installation's own folders are listed: those beside
    // the executable's folder.
    const QString app = device_.path("TalvoPlayer/");
    const QString a = WritePcmProgram(app + "a.zq", "prog-a", 10);
    const QString b = WritePcmProgram(app + "b.zq", "prog-b", 5);
    const QString c = WritePcmProgram(device_.path("Music/Author/Title/c.zq"), "prog-c", 3);
    const QString d = WritePcmProgram(device_.path("Music/Author/Title/d.zq"), "prog-d", 4);
    const QString e = WritePcmProgram(root + "/Music/Author/Title/e.zq", "prog-e", 6);
    WritePcmProgram(root + "/TalvoPlayer/f.zq", "prog-f", 6);
    keepPosition(a, 4500);
    keepPosition(b, 7000); // past the end: reported one second short of it
    keepPosition(c, 2999);
    keepPosition(e, 6000);

    // Four records are too many for the value: the answer lies in the data file.
    CommandRun result = run({"-EnumFiles"});
    EXPECT_EQ(result.exitCode, 0);
    ASSERT_TRUE(answer());
    ASSERT_EQ(answer()->type, REG_SZ);
    EXPECT_EQ(Utf16Text(*answer()), device_.path("bin/_Data.tmp"));
    QFile file(device_.path("bin/_Data.tmp"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    ASSERT_EQ(bytes.size(), 4 * static_cast<qsizetype>(SyncRecord::kSize));

    struct Expected {
        QString path, id;
        std::uint32_t duration, position;
    };
    const Expected expected[] = {
        {a, "prog-a", 10, 4}, {b, "prog-b", 5, 4}, {c, "prog-c", 3, 2}, {d, "prog-d", 4, 0}};
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        SCOPED_TRACE(i);
        const auto* record = reinterpret_cast<const std::uint8_t*>(bytes.constData()) + i * SyncRecord::kSize;
        EXPECT_EQ(u32At(record, SyncRecord::kVersionOffset), 1u);
        EXPECT_EQ(textAt(record, SyncRecord::kPathOffset), expected[i].path);
        EXPECT_EQ(textAt(record, SyncRecord::kTitleOffset), "Program " + expected[i].id);
        EXPECT_EQ(textAt(record, SyncRecord::kProgramIdOffset), expected[i].id);
        EXPECT_EQ(u32At(record, SyncRecord::kDurationOffset), expected[i].duration);
        EXPECT_EQ(u32At(record, SyncRecord::kPositionOffset), expected[i].position);
        EXPECT_EQ(static_cast<std::int32_t>(u32At(record, SyncRecord::kFileTypeOffset)), ZQX_TYPE_PCM16);
        EXPECT_EQ(u32At(record, SyncRecord::kFlagsOffset), 0u);
    }

    // A folder on a card keeps only the programs below it; one record fits the value.
    setInput(root + "/Music/Author/");
    EXPECT_EQ(run({"-EnumFiles"}).exitCode, 0);
    ASSERT_EQ(answer()->type, REG_BINARY);
    ASSERT_EQ(answer()->bytes.size(), SyncRecord::kSize);
    EXPECT_EQ(textAt(answer()->bytes.data(), SyncRecord::kPathOffset), e);
    EXPECT_EQ(u32At(answer()->bytes.data(), SyncRecord::kPositionOffset), 5u);
    EXPECT_EQ(u32At(answer()->bytes.data(), SyncRecord::kFlagsOffset), SyncRecord::kFlagOnStorageCard);
}

TEST_F(SyncCommandProcess, FirstCommandOfTheFixedOrderWins)
{
    CommandRun result = run({"-AddProgram", "-GetAPVersion"});
    EXPECT_EQ(result.exitCode, 0);
    ASSERT_TRUE(answer());
    EXPECT_EQ(Utf16Text(*answer()), "5,5,0,10;0");
}

TEST_F(SyncCommandProcess, WithoutPlayerDeleteProgramDeletesFilesAndFoldersItself)
{
    const QString root = card("Card1");
    device_.set("TALVOPLAYER_CARDS", root);
    const QString a = WritePcmProgram(root + "/TalvoPlayer/a.zq", "prog-a", 2);
    const QString c = WritePcmProgram(root + "/Music/Author/Title/c.zq", "prog-c", 2);
    const QString d = WritePcmProgram(root + "/Music/Author/Title/d.zq", "prog-d", 2);

    setInput(a);
    EXPECT_EQ(run({"-DeleteProgram"}).exitCode, 0);
    EXPECT_FALSE(QFile::exists(a));

    // A missing path goes the folder way and finds nothing of its own to delete.
    setInput(root + "/Music/Nobody/");
    EXPECT_EQ(run({"-DeleteProgram"}).exitCode, 0);
    EXPECT_TRUE(QFile::exists(c));

    setInput(root + "/Music/Author/Title/");
    EXPECT_EQ(run({"-DeleteProgram"}).exitCode, 0);
    EXPECT_FALSE(QFile::exists(c));
    EXPECT_FALSE(QFile::exists(d));
    EXPECT_FALSE(ReadSyncValue(*registry_, SyncTransport::kInputValue));
}

TEST_F(SyncCommandProcess, DeleteProgramTakesOnlyWhatItNamesWithAndWithoutAPlayer)
{
    const QString root = card("SD");
    device_.set("TALVOPLAYER_CARDS", root);
    device_.set("TALVOPLAYER_AUDIO", "null");
    for (const bool withPlayer : {false, true}) {
        SCOPED_TRACE(withPlayer ? "with a running player" : "without a player");
        // The installation's folders lie beside the executable's folder; its
        // "Music" is not the listener's "music", the device's Music folder.
        const QString installed = WritePcmProgram(device_.path("TalvoPlayer/inst.zq"), "inst", 2);
        const QString installedMusic = WritePcmProgram(device_.path("Music/A/B/im.zq"), "im", 2);
        const QString doomed = WritePcmProgram(root + "/Music/A/B/doomed.zq", "doomed", 2);
        const QStringList kept{WritePcmProgram(device_.path("music/A/B/m.zq"), "m", 2),
                               WritePcmProgram(root + "/root.zq", "root", 2),
                               WritePcmProgram(root + "/TalvoPlayer/own.zq", "own", 2),
                               WritePcmProgram(root + "/Music/C/D/other.zq", "other", 2)};
        QProcess player;
        if (withPlayer) {
            player.setProcessChannelMode(QProcess::ForwardedChannels);
            player.start(executable(), {});
            ASSERT_TRUE(player.waitForStarted());
            bool listening = false;
            for (int i = 0; i < 200 && !listening; ++i) {
                listening = InstanceClient().Connect(QStringLiteral("TalvoPlayerMainWnd"), 100);
                if (!listening)
                    QThread::msleep(50);
            }
            ASSERT_TRUE(listening) << "the player never listened for other instances";
        }

        EXPECT_EQ(run({"-DeleteProgram"}).exitCode, 0);
        EXPECT_FALSE(QFile::exists(installed));
        EXPECT_FALSE(QFile::exists(installedMusic));
        setInput(root + "/Music/A/");
        EXPECT_EQ(run({"-DeleteProgram"}).exitCode, 0);
        EXPECT_FALSE(QFile::exists(doomed));
        for (const QString& path : kept)
            EXPECT_TRUE(QFile::exists(path)) << path.toStdString();

        if (withPlayer) {
            player.terminate();
            EXPECT_TRUE(player.waitForFinished(20000));
        }
    }
}

TEST_F(SyncCommandProcess, RunningPlayerIsHandedAddAndDeleteRequests)
{
    // Without a player an add is no error, even without input.
    CommandRun result = run({"-AddProgram"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.printed, "0x00000000\n");
    EXPECT_FALSE(answer());

    struct Request {
        std::uint32_t dwData;
        QByteArray data;
    };
    std::vector<Request> received;
    InstanceServer player;
    ASSERT_TRUE(player.Listen("TalvoPlayerMainWnd",
                              [&](InstanceRequest kind, std::uint32_t dwData, const QByteArray& data) {
                                  EXPECT_EQ(kind, InstanceRequest::CopyData);
                                  received.push_back({dwData, data});
                                  return std::int64_t{1};
                              }));

    result = run({"-AddProgram"});
    EXPECT_EQ(result.exitCode, 0x57);
    EXPECT_EQ(result.printed, "0x80070057\n");

    setInput("/cards/new.zq");
    EXPECT_EQ(run({"-AddProgram"}).exitCode, 0);
    EXPECT_FALSE(ReadSyncValue(*registry_, SyncTransport::kInputValue)) << "an empty answer takes the input";
    setInput("/cards/new.zq");
    EXPECT_EQ(run({"-DeleteProgram"}).exitCode, 0);
    EXPECT_EQ(run({"-DeleteProgram"}).exitCode, 0);

    const std::vector<std::uint8_t> path = RegSzBytes(u"/cards/new.zq");
    const QByteArray pathBytes(reinterpret_cast<const char*>(path.data()),
                               static_cast<qsizetype>(path.size()));
    ASSERT_EQ(received.size(), 3u);
    EXPECT_EQ(received[0].dwData, 7481u);
    EXPECT_EQ(received[0].data, pathBytes);
    EXPECT_EQ(received[1].dwData, 7480u);
    EXPECT_EQ(received[1].data, pathBytes);
    EXPECT_EQ(received[2].dwData, 7480u);
    EXPECT_TRUE(received[2].data.isEmpty());
}

} // namespace
} // namespace talvo::test
