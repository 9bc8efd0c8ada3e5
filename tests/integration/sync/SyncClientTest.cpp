// talvosync against the real player and registry tool, reached through a
// shell prefix as a remote device would be: the whole round trip of input,
// result line, "_Data" and data file, and the texts it prints.
#include "platform/InstanceChannel.h"
#include "tests/integration/playback/PlayerFixture.h"
#include "tests/integration/sync/SyncTestRegistry.h"

#include <QProcess>
#include <cerrno>
#include <cstring>

namespace talvo::test {
namespace {

const QString kBin = QStringLiteral(TALVO_BUILD_DIR "/bin/");

struct ClientRun {
    int exitCode = -1;
    QString printed;
    QString complained;
};

class SyncClient : public ::testing::Test {
protected:
    void SetUp() override
    {
        device_.UsePrivateRuntime();
        device_.set("TALVOPLAYER_PLATFORM", "PocketPC");
        QDir().mkpath(device_.path("bin"));
        ASSERT_TRUE(QFile::copy(kBin + "talvoplayer", device_.path("bin/talvoplayer")));
    }

    void TearDown() override
    {
        for (const QString& folder : forbidden_)
            QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    // Takes the right to create files in folder away from the device's
    // programs.  The mode alone does it for an ordinary user; root passes any
    // mode, so for root the programs run in a user namespace of their own,
    // where root's privileges end and the mode binds them as well.  False when
    // neither can be arranged.
    bool forbidWritingIn(const QString& folder)
    {
        forbidden_ << folder;
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner);
        QFile probe(folder + "/probe");
        if (!probe.open(QIODevice::WriteOnly))
            return true;
        probe.remove();
        if (QProcess::execute("unshare", {"--user", "true"}) != 0)
            return false;
        via_ = "unshare --user sh -c";
        return true;
    }

    ClientRun client(const QStringList& arguments)
    {
        QProcess process;
        process.start(kBin + "talvosync",
                      QStringList{"--via", via_, "--player", device_.path("bin/talvoplayer"), "--talvoreg",
                                  kBin + "talvoreg"} +
                          arguments);
        EXPECT_TRUE(process.waitForStarted());
        while (!process.waitForFinished(20))
            QCoreApplication::processEvents();
        return {process.exitCode(), QString::fromLocal8Bit(process.readAllStandardOutput()),
                QString::fromLocal8Bit(process.readAllStandardError())};
    }

    TestDevice device_;
    QString via_ = "sh -c";
    QStringList forbidden_;
};

TEST_F(SyncClient, ReadsAnswersFromTheValueAndFromTheDataFile)
{
    device_.set("TALVOPLAYER_OEM_INFO", "Acme X-2 {b}");
    ClientRun run = client({"GetDeviceManufacturer"});
    EXPECT_EQ(run.exitCode, 0) << run.complained.toStdString();
    EXPECT_EQ(run.printed, "Acme_X_2__b_\n");

    // Five records are more than "_Data" holds: the client follows it to the file.
    for (int i = 0; i < 5; ++i)
        WritePcmProgram(device_.path(QStringLiteral("TalvoPlayer/p%1.zq").arg(i)), "id" + std::to_string(i),
                        3 + i);
    run = client({"-EnumFiles"});
    EXPECT_EQ(run.exitCode, 0) << run.complained.toStdString();
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(run.printed.contains(QStringLiteral("%1\n  title: Program id%2\n")
                                             .arg(device_.path(QStringLiteral("TalvoPlayer/p%1.zq").arg(i)))
                                             .arg(i)))
            << run.printed.toStdString();
        EXPECT_TRUE(run.printed.contains(QStringLiteral("length: %1 s, position: 0 s").arg(3 + i)));
    }

    // No programs left to list: no answer, and none from the earlier run either.
    QDir(device_.path("TalvoPlayer")).removeRecursively();
    run = client({"EnumFiles"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.printed, "");
}

TEST_F(SyncClient, AnswersTravelThroughTheDataFolderWhenTheExecutablesFolderIsReadOnly)
{
    for (int i = 0; i < 5; ++i)
        WritePcmProgram(device_.path(QStringLiteral("TalvoPlayer/p%1.zq").arg(i)), "id" + std::to_string(i),
                        2);
    device_.set("XDG_DATA_HOME", device_.path("xdg"));
    if (!forbidWritingIn(device_.path("bin")))
        GTEST_SKIP() << "no way to make a folder read-only for this process";

    ClientRun run = client({"GetAPVersion"});
    EXPECT_EQ(run.exitCode, 0) << run.complained.toStdString();
    EXPECT_EQ(run.printed, "version 5.5.0.10 on a Pocket PC\n");
    run = client({"EnumFiles"});
    EXPECT_EQ(run.exitCode, 0) << run.complained.toStdString();
    EXPECT_EQ(run.printed.count("\n  title: Program id"), 5) << run.printed.toStdString();

    auto registry = OpenSqliteRegistry(device_.registryPath().toStdString());
    const std::optional<StoredValue> data = ReadSyncValue(*registry, SyncTransport::kOutputValue);
    ASSERT_TRUE(data);
    EXPECT_EQ(Utf16Text(*data), device_.path("xdg/talvoplayer/_Data.tmp"));
    EXPECT_FALSE(QFileInfo::exists(device_.path("bin/_Data.tmp")));
    EXPECT_TRUE(device_.messages().isEmpty()) << device_.messages().join('\n').toStdString();
}

TEST_F(SyncClient, RefusedDeleteIsReportedInThePlatformsNumberWithTheSystemsText)
{
    const QString locked = device_.path("cards/SD/locked");
    const QString program = WritePcmProgram(locked + "/p.zq", "p", 2);
    if (!forbidWritingIn(locked))
        GTEST_SKIP() << "no way to make a folder read-only for this process";

    const QString reason = QString::fromLocal8Bit(std::strerror(EACCES));
    ClientRun run = client({"DeleteProgram", program});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.complained,
              QStringLiteral("talvosync: the device reported system error 5: %1 (0x80070005)\n").arg(reason));
    EXPECT_TRUE(QFile::exists(program));
    EXPECT_EQ(
        device_.messages(),
        QStringList{
            QStringLiteral("TalvoPlayer Error\tFail to delete file %1. %2.\t0x50010").arg(program, reason)});
}

TEST_F(SyncClient, FailureIsExplainedWithItsWholeResult)
{
    InstanceServer player;
    ASSERT_TRUE(
        player.Listen("TalvoPlayerMainWnd", [](auto, auto, const QByteArray&) { return std::int64_t{1}; }));
    ClientRun run = client({"AddProgram"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.complained, "talvosync: the command needs a path as input (0x80070057)\n");

    run = client({"AddProgram", "/x/it's.zq"});
    EXPECT_EQ(run.exitCode, 0) << run.complained.toStdString();
}

} // namespace
} // namespace talvo::test
