// talvosync against the real player and registry tool, reached through a
// shell prefix as a remote device would be: the whole round trip of input,
// result line, "_Data" and data file, and the texts it prints.
#include "platform/InstanceChannel.h"
#include "tests/integration/playback/PlayerFixture.h"

#include <QProcess>

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

    ClientRun client(const QStringList& arguments)
    {
        QProcess process;
        process.start(kBin + "talvosync",
                      QStringList{"--via", "sh -c", "--player", device_.path("bin/talvoplayer"), "--talvoreg",
                                  kBin + "talvoreg"} +
                          arguments);
        EXPECT_TRUE(process.waitForStarted());
        while (!process.waitForFinished(20))
            QCoreApplication::processEvents();
        return {process.exitCode(), QString::fromLocal8Bit(process.readAllStandardOutput()),
                QString::fromLocal8Bit(process.readAllStandardError())};
    }

    TestDevice device_;
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
