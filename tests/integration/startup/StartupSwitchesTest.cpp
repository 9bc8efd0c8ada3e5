// The real player binary before any window: --help, -h and --version, and a
// start without a display, which must say so in one line instead of aborting.
#include "TalvoVersion.h"
#include "tests/support/TestDevice.h"

#include <QProcess>
#include <gtest/gtest.h>

namespace talvo::test {
namespace {

const QString kBin = QStringLiteral(TALVO_BUILD_DIR "/bin/");

struct Finished {
    int exitCode = -1;
    QProcess::ExitStatus status = QProcess::CrashExit;
    QString out;
    QString err;
};

// Runs a program of the build with the test's environment minus every way to
// a display.
Finished RunWithoutDisplay(const QString& program, const QStringList& arguments,
                           const QMap<QString, QString>& extra = {})
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        environment.remove(QLatin1String(name));
    for (auto it = extra.begin(); it != extra.end(); ++it)
        environment.insert(it.key(), it.value());
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(kBin + program, arguments);
    EXPECT_TRUE(process.waitForFinished(60000));
    return {process.exitCode(), process.exitStatus(), QString::fromLocal8Bit(process.readAllStandardOutput()),
            QString::fromLocal8Bit(process.readAllStandardError())};
}

class StartupSwitches : public ::testing::Test {
protected:
    void SetUp() override { device_.UsePrivateRuntime(); }
    TestDevice device_;
};

TEST_F(StartupSwitches, HelpAndVersionAnswerWithoutDisplayOrStore)
{
    for (const QString& help : {QStringLiteral("--help"), QStringLiteral("-h")}) {
        const Finished run = RunWithoutDisplay(QStringLiteral("talvoplayer"), {help});
        EXPECT_EQ(run.status, QProcess::NormalExit);
        EXPECT_EQ(run.exitCode, 0);
        for (const char* named : {"-File:PATH",
                                  "-GetStorageInfo",
                                  "-GetAPVersion",
                                  "-EnumFiles",
                                  "-GetDeviceManufacturer",
                                  "-DeleteProgram",
                                  "-AddProgram",
                                  "0x%08X",
                                  "TALVOPLAYER_REGISTRY",
                                  "TALVOPLAYER_HOME",
                                  "TALVOPLAYER_MUSIC",
                                  "TALVOPLAYER_CARDS",
                                  "TALVOPLAYER_AUDIO",
                                  "TALVOPLAYER_PLATFORM",
                                  "TALVOPLAYER_SCREEN",
                                  "TALVOPLAYER_SCREEN_POWER",
                                  "TALVOPLAYER_OEM_INFO",
                                  "TALVOPLAYER_MESSAGES",
                                  "TALVOPLAYER_TRACE",
                                  "registry.db",
                                  "Skins/",
                                  "XDG_DATA_HOME",
                                  "Exit status"})
            EXPECT_TRUE(run.out.contains(QLatin1String(named))) << named;
    }
    // Every executable reports the one version of the build.
    for (const char* tool : {"talvoplayer", "talvoreg", "talvosync", "zqxpack", "zqxinfo", "skincheck"}) {
        const Finished run = RunWithoutDisplay(QLatin1String(tool), {QStringLiteral("--version")});
        EXPECT_EQ(run.exitCode, 0) << tool;
        EXPECT_EQ(run.out, QStringLiteral("%1 " TALVO_VERSION_TEXT "\n").arg(QLatin1String(tool)));
    }
    EXPECT_FALSE(QFile::exists(device_.registryPath())) << "--help and --version touch no settings store";
}

TEST_F(StartupSwitches, WithoutADisplayThePlayerSaysSoInOneLineAndTheSyncSwitchesStillWork)
{
    const QMap<QString, QString> unreachable{{QStringLiteral("DISPLAY"), QStringLiteral(":1999")}};
    for (const auto& environment : {QMap<QString, QString>(), unreachable}) {
        const Finished run = RunWithoutDisplay(QStringLiteral("talvoplayer"), {}, environment);
        EXPECT_EQ(run.status, QProcess::NormalExit);
        EXPECT_EQ(run.exitCode, 1);
        const QStringList lines = run.err.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        ASSERT_EQ(lines.size(), 1) << run.err.toStdString();
        EXPECT_TRUE(lines[0].contains(QLatin1String("DISPLAY")));
        EXPECT_TRUE(lines[0].contains(QLatin1String("sync switches")));
        EXPECT_EQ(lines[0].contains(QLatin1String(":1999")), !environment.isEmpty());
    }
    // A sync switch with "-h" beside it is still the sync switch, and needs no display.
    const Finished sync = RunWithoutDisplay(
        QStringLiteral("talvoplayer"), {QStringLiteral("-GetAPVersion"), QStringLiteral("-h")}, unreachable);
    EXPECT_EQ(sync.exitCode, 0);
    EXPECT_EQ(sync.out, QStringLiteral("0x00000000\n"));
}

} // namespace
} // namespace talvo::test
