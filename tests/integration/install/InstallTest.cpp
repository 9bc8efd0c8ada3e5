// A real install into a temporary prefix: every piece lands where the desktop
// looks for it, and the installed player runs from there, reading its data
// from the prefix and writing nothing under it.
#include "tests/integration/playback/PlayerFixture.h"

#include <QDirIterator>
#include <QMimeDatabase>
#include <QProcess>
#include <QThread>
#include <csignal>

namespace talvo::test {
namespace {

struct ProcessRun {
    int exitCode = -1;
    QString output;
};

ProcessRun run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(120000))
        return {};
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAll())};
}

class Install : public ::testing::Test {
protected:
    void SetUp() override
    {
        device_.UsePrivateRuntime();
        device_.set("XDG_DATA_HOME", device_.path("xdg"));
        const ProcessRun install =
            run(QStringLiteral(TALVO_CMAKE_COMMAND), {"--install", TALVO_BUILD_DIR, "--prefix", prefix()});
        ASSERT_EQ(install.exitCode, 0) << install.output.toStdString();
    }

    QString prefix(const QString& relative = QString()) const
    {
        return device_.path("prefix") + (relative.isEmpty() ? QString() : "/" + relative);
    }

    // Every file and folder under the prefix with its size and time of change.
    QStringList listing() const
    {
        QStringList entries;
        QDirIterator it(prefix(), QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QFileInfo info(it.next());
            entries << QStringLiteral("%1 %2 %3")
                           .arg(info.filePath())
                           .arg(info.isDir() ? 0 : info.size())
                           .arg(info.lastModified().toMSecsSinceEpoch());
        }
        entries.sort();
        return entries;
    }

    TestDevice device_;
};

TEST_F(Install, EveryPieceIsInPlaceAndTheDesktopAcceptsThem)
{
    for (const char* file :
         {"bin/talvoplayer", "bin/talvosync", "bin/talvoreg", "bin/zqxinfo", "bin/feldrun",
          "share/talvoplayer/TalvoPlayerHlp.htm", "share/talvoplayer/zqserver.ini",
          "share/icons/hicolor/scalable/apps/talvoplayer.svg", "share/mime/packages/talvoplayer.xml",
          "share/applications/talvoplayer.desktop", "share/man/man1/talvoplayer.1",
          "share/man/man1/talvoreg.1", "share/man/man1/talvosync.1", "share/man/man1/zqxpack.1",
          "share/man/man1/zqxinfo.1", "share/man/man1/feldrun.1"})
        EXPECT_TRUE(QFileInfo::exists(prefix(file))) << file;
    EXPECT_FALSE(QDir(prefix("share/talvoplayer/Skins")).entryList({"*.ini"}).isEmpty());
    // The player's Feldrun command starts Feldrun from its own folder.
    EXPECT_EQ(QFileInfo(prefix("share/talvoplayer/Feldrun")).canonicalFilePath(),
              QFileInfo(prefix("bin/feldrun")).canonicalFilePath());

    const ProcessRun validate =
        run("desktop-file-validate", {prefix("share/applications/talvoplayer.desktop")});
    EXPECT_EQ(validate.exitCode, 0);
    EXPECT_EQ(validate.output, "") << validate.output.toStdString();

    // What a file manager looks up to offer the player for a program.
    QFile associations(prefix("share/applications/mimeinfo.cache"));
    ASSERT_TRUE(associations.open(QIODevice::ReadOnly));
    EXPECT_TRUE(associations.readAll().contains("application/x-talvo-audio=talvoplayer.desktop;"));

    // The prefix's mime data alone: a type found here can only come from it.
    device_.set("XDG_DATA_DIRS", prefix("share"));
    QMimeDatabase mime;
    EXPECT_EQ(mime.mimeTypeForFile("book.zq", QMimeDatabase::MatchExtension).name(),
              "application/x-talvo-audio");
    EXPECT_EQ(mime.mimeTypeForFile("book.zqx", QMimeDatabase::MatchExtension).name(),
              "application/x-talvo-audio");
    // A program under a name of no known kind is told by its first bytes.
    const QString renamed = WritePcmProgram(device_.path("music/renamed.bin"), "renamed", 2);
    EXPECT_EQ(mime.mimeTypeForFile(renamed, QMimeDatabase::MatchContent).name(), "application/x-talvo-audio");
}

TEST_F(Install, TheInstalledPlayerRunsFromThePrefixAndWritesNothingThere)
{
    const QStringList before = listing();
    const QString player = prefix("bin/talvoplayer");

    const ProcessRun version = run(player, {"-GetAPVersion"});
    EXPECT_EQ(version.exitCode, 0) << version.output.toStdString();
    EXPECT_TRUE(version.output.contains("0x00000000")) << version.output.toStdString();
    EXPECT_TRUE(QFileInfo::exists(device_.path("xdg/talvoplayer/_Data.tmp")));

    // A file manager's open, by the installed entry's command with the file
    // in place of %f and the program found on a PATH that holds the prefix:
    // the program plays, from the installed skins.
    const QString book = WritePcmProgram(device_.path("music/Author/Book with blanks/book.zq"), "book", 120);
    QFile entry(prefix("share/applications/talvoplayer.desktop"));
    ASSERT_TRUE(entry.open(QIODevice::ReadOnly));
    const QString exec = QString::fromUtf8(entry.readAll()).section("\nExec=", 1).section('\n', 0, 0);
    QStringList command = exec.split(' ');
    ASSERT_EQ(command.size(), 2) << exec.toStdString();
    ASSERT_EQ(command[0], "talvoplayer");
    const QString captured = device_.path("played.wav");
    device_.set("TALVOPLAYER_AUDIO", "capture:" + captured + ":4");
    QProcess playing;
    playing.setProcessChannelMode(QProcess::ForwardedChannels);
    playing.start(prefix("bin/") + command[0], {command[1].replace("%f", book)});
    ASSERT_TRUE(playing.waitForStarted());
    // Five seconds of the 1000 Hz mono program reach the output.
    bool played = false;
    for (int i = 0; i < 600 && !played && playing.state() == QProcess::Running; ++i) {
        played = QFileInfo(captured).size() > 44 + 5 * 2000;
        QThread::msleep(50);
    }
    EXPECT_TRUE(played) << device_.messages().join('\n').toStdString();
    if (playing.state() == QProcess::Running)
        ::kill(static_cast<pid_t>(playing.processId()), SIGTERM);
    ASSERT_TRUE(playing.waitForFinished(20000));
    EXPECT_EQ(playing.exitCode(), 0);
    EXPECT_TRUE(device_.messages().isEmpty()) << device_.messages().join('\n').toStdString();

    EXPECT_EQ(listing(), before);
}

} // namespace
} // namespace talvo::test
