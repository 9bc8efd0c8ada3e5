// A program in a folder whose name is Latin-1, not UTF-8, under a UTF-8
// locale: played by -File:, handed to the running player by -AddProgram,
// bookmarked, listed by -EnumFiles and talvosync, and deleted by talvosync,
// each exactly as a program under a UTF-8 name.  Its stored record is the
// same from run to run.
#include "base/CommandIds.h"
#include "library/BookmarkDialogs.h"
#include "library/ProgramDetailsPage.h"
#include "library/ProgramRecordLayout.h"
#include "platform/FileNames.h"
#include "sync/SyncProgramRecord.h"
#include "tests/integration/playback/PlayerFixture.h"
#include "tests/integration/sync/SyncTestRegistry.h"

#include <QApplication>
#include <QLineEdit>
#include <QProcess>
#include <QThread>
#include <QTimer>
#include <csignal>
#include <filesystem>
#include <fstream>

namespace talvo::test {
namespace {

const QString kBin = QStringLiteral(TALVO_BUILD_DIR "/bin/");
// "Caf\xe9": the 0xE9 of Latin-1 is no UTF-8.
const QByteArray kFolder = QByteArray("Caf\xe9");

class ByteNamedFolder : public PlayerFixture {
protected:
    void SetUp() override
    {
        PlayerFixture::SetUp();
        device_.UsePrivateRuntime();
        device_.set("LC_ALL", "C.UTF-8");
        device_.set("TALVOPLAYER_PLATFORM", "PocketPC");
        SettingsStore(*registry_).SetVolume(65535);
        // On a card, where the sync commands look.
        device_.set("TALVOPLAYER_CARDS", device_.path("Card1"));
        programBytes_ = EncodeFileName(device_.path("Card1/Music/")) + kFolder + "/Book/p.zq";
        program_ = DecodeFileName(programBytes_);
        WritePcmProgram(program_, "cafe", 120, {}, {1000, 1, 100});
    }

    // Starts a tool whose last argument is prefix + path, passed as bytes: a
    // QProcess argument would be re-encoded, and the name lost.
    void start(QProcess& process, const QString& tool, const QStringList& arguments, const QByteArray& last)
    {
        qputenv("TALVO_TEST_ARGUMENT", last);
        const QString script = last.isNull() ? "exec \"$@\"" : "exec \"$@\" \"$TALVO_TEST_ARGUMENT\"";
        process.setProcessChannelMode(QProcess::SeparateChannels);
        process.start(QStringLiteral("/bin/sh"), QStringList{"-c", script, "sh", kBin + tool} + arguments);
        ASSERT_TRUE(process.waitForStarted());
    }

    QByteArray run(const QString& tool, const QStringList& arguments, const QByteArray& last = QByteArray())
    {
        QProcess process;
        start(process, tool, arguments, last);
        EXPECT_TRUE(process.waitForFinished(60000));
        return process.readAllStandardOutput();
    }

    // The player playing the program, until it has been heard.
    void startPlaying(QProcess& player, const QString& capture)
    {
        device_.set("TALVOPLAYER_AUDIO", "capture:" + capture);
        start(player, "talvoplayer", {}, "-File:" + programBytes_);
        for (int wait = 0; wait < 400 && QFileInfo(capture).size() <= 4096; ++wait)
            QThread::msleep(25);
        ASSERT_GT(QFileInfo(capture).size(), 4096) << "no audio from the program";
    }

    void stop(QProcess& player)
    {
        ::kill(static_cast<pid_t>(player.processId()), SIGTERM);
        ASSERT_TRUE(player.waitForFinished(20000));
    }

    void setSyncInput(const QString& path)
    {
        WriteSyncValue(*registry_, SyncTransport::kInputValue, REG_SZ, RegSzBytes(path.toStdU16String()));
    }

    // What is kept for the program: "Last Program", its position and bookmarks.
    QString storedRecord()
    {
        ProgramStateStore store(*registry_);
        ProgramFile fresh(program_);
        EXPECT_EQ(fresh.ReadMetadata(), ZQX_OK);
        EXPECT_TRUE(fresh.Open(store));
        QString record =
            SettingsStore(*registry_).GetLastProgram() + QStringLiteral(" at %1").arg(fresh.Position());
        for (const Bookmark& bookmark : fresh.bookmarks)
            record +=
                QStringLiteral("; %1 %2").arg(QString::fromStdU16String(bookmark.name)).arg(bookmark.timeMs);
        return record;
    }

    QByteArray programBytes_;
    QString program_;
};

TEST_F(ByteNamedFolder, PlaysKeepsBookmarksListsAndDeletesLikeAUtf8Name)
{
    QProcess player;
    startPlaying(player, device_.path("run1.wav"));
    // The sync switches hand the path to the running player, which keeps it.
    setSyncInput(program_);
    EXPECT_EQ(run("talvoplayer", {}, "-AddProgram"), "0x00000000\n");
    QThread::msleep(1500);
    stop(player);
    EXPECT_EQ(device_.messages(), QStringList()) << "no box for a name";
    EXPECT_EQ(SettingsStore(*registry_).GetLastProgram(), program_);

    // A bookmark made in the window, on the program it reopens.
    startPlayer();
    ASSERT_EQ(current().path, program_);
    EXPECT_EQ(GatherProgramDetails(current()).sizeBytes,
              std::filesystem::file_size(programBytes_.toStdString()));
    current().Seek(7000);
    QTimer::singleShot(0, [] {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        ASSERT_NE(dialog, nullptr);
        dialog->findChild<QLineEdit*>("bookmarkName")->setText("Caf\u00e9 scene");
        dialog->accept();
    });
    frame_->SendCommand(Command::AddBookmark);
    pump();
    frame_.reset();
    const QString first = storedRecord();
    EXPECT_TRUE(first.contains("Caf\u00e9 scene 7000")) << first.toStdString();

    // A second run keeps exactly that record, resuming where the last left off.
    startPlaying(player, device_.path("run2.wav"));
    stop(player);
    const QString second = storedRecord();
    EXPECT_EQ(second.section(" at ", 0, 0), first.section(" at ", 0, 0));
    EXPECT_EQ(second.section("; ", 1), first.section("; ", 1));

    // Listed with the very bytes of its path, by the player and by talvosync.
    setSyncInput(DecodeFileName(EncodeFileName(device_.path("Card1/Music/")) + kFolder));
    EXPECT_EQ(run("talvoplayer", {}, "-EnumFiles"), "0x00000000\n");
    const std::optional<StoredValue> answer = ReadSyncValue(*registry_, SyncTransport::kOutputValue);
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->bytes.size(), SyncRecord::kSize);
    EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(answer->bytes.data() + SyncRecord::kPathOffset)),
              programBytes_);
    const QStringList tools{"--player", kBin + "talvoplayer", "--talvoreg", kBin + "talvoreg"};
    const QByteArray card = EncodeFileName(device_.path("Card1"));
    EXPECT_TRUE(run("talvosync", tools + QStringList{"EnumFiles"}, card).contains(programBytes_));

    // Deleted by its bytes through the running player, with its side file.
    const QByteArray side = programBytes_.chopped(3) + ".pos";
    EXPECT_TRUE(std::filesystem::exists(side.toStdString()));
    startPlaying(player, device_.path("run3.wav"));
    run("talvosync", tools + QStringList{"DeleteProgram"}, programBytes_);
    stop(player);
    EXPECT_FALSE(std::filesystem::exists(programBytes_.toStdString()));
    EXPECT_FALSE(std::filesystem::exists(side.toStdString()));
    EXPECT_FALSE(run("talvosync", tools + QStringList{"EnumFiles"}, card).contains(kFolder));
    EXPECT_EQ(device_.messages(), QStringList());
}

TEST_F(ByteNamedFolder, AProgramThatCannotBeOpenedIsToldByItsShownName)
{
    // Readable metadata, a damaged seek index: listed, then refused at the open.
    {
        std::fstream file(programBytes_.toStdString(), std::ios::in | std::ios::out | std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        const std::size_t audio = bytes.find("AUDI");
        ASSERT_NE(audio, std::string::npos);
        file.seekp(static_cast<std::streamoff>(audio - 1));
        file.put(static_cast<char>(bytes[audio - 1] ^ 0x5A));
    }
    QProcess player;
    device_.set("TALVOPLAYER_AUDIO", "null");
    start(player, "talvoplayer", {}, "-File:" + programBytes_);
    for (int wait = 0; wait < 400 && device_.messages().isEmpty(); ++wait)
        QThread::msleep(25);
    stop(player);
    ASSERT_FALSE(device_.messages().isEmpty()) << "silence instead of the open error";
    EXPECT_TRUE(device_.messages().first().contains(DisplayFileName(program_)))
        << device_.messages().first().toStdString();
}

} // namespace
} // namespace talvo::test
