// The real player on a Wayland display, natively: a headless compositor, no
// X display and no platform forced, a demo program played and a clean quit.
#include "platform/Registry.h"
#include "tests/support/TestDevice.h"

#include <QDirIterator>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>
#include <gtest/gtest.h>

#include <csignal>

namespace talvo::test {
namespace {

const QString kPlayer = QStringLiteral(TALVO_BUILD_DIR "/bin/talvoplayer");
const QString kSocket = QStringLiteral("talvo-wayland-test");
// Long enough for a loaded machine; the test waits for what it needs, never for a time.
constexpr int kPatienceMs = 60000;
constexpr int kLookMs = 100;
// A WAV file's header, and where in it the bytes per second stand.
constexpr qint64 kWavHeaderBytes = 44;
constexpr int kByteRateOffset = 28;
// Played before the quit: more than the stop rewinds (a second per queued
// buffer), so a position is left to save.
constexpr int kPlayedSeconds = 8;

bool WaitFor(const std::function<bool()>& done)
{
    for (int waited = 0; waited < kPatienceMs; waited += kLookMs) {
        if (done())
            return true;
        QThread::msleep(kLookMs);
    }
    return done();
}

class WaylandPlayer : public ::testing::Test {
protected:
    void SetUp() override
    {
        weston_ = QStandardPaths::findExecutable(QStringLiteral("weston"));
        if (weston_.isEmpty())
            GTEST_SKIP()
                << "weston is not installed (scripts/deps.sh installs it): no Wayland compositor to test on";
        device_.UsePrivateRuntime();
        environment_ = QProcessEnvironment::systemEnvironment();
        for (const char* name : {"DISPLAY", "QT_QPA_PLATFORM", "WAYLAND_DISPLAY"})
            environment_.remove(QLatin1String(name));
    }
    void TearDown() override
    {
        for (QProcess* process : {&player_, &compositor_}) {
            if (process->state() != QProcess::NotRunning) {
                process->terminate();
                if (!process->waitForFinished(10000))
                    process->kill();
                process->waitForFinished();
            }
        }
    }

    void startCompositor()
    {
        compositor_.setProcessEnvironment(environment_);
        compositor_.setProcessChannelMode(QProcess::MergedChannels);
        compositor_.start(weston_, {QStringLiteral("--backend=headless-backend.so"),
                                    QStringLiteral("--socket=") + kSocket, QStringLiteral("--idle-time=0")});
        ASSERT_TRUE(compositor_.waitForStarted());
        const QString socket = device_.path(QStringLiteral("run/") + kSocket);
        ASSERT_TRUE(WaitFor([&] { return QFile::exists(socket); }))
            << "weston did not start: " << compositor_.readAll().toStdString();
    }

    // A demo program of the build in the device's music folder, two levels
    // deep, and a store that has shown its welcome already.
    QString prepareDevice()
    {
        QDirIterator demos(QStringLiteral(TALVO_BUILD_DIR "/demo/music"), {QStringLiteral("*.zq")},
                           QDir::Files, QDirIterator::Subdirectories);
        EXPECT_TRUE(demos.hasNext()) << "the build makes the demo library";
        const QString program = device_.path(QStringLiteral("music/Demo/Program/demo.zq"));
        QDir().mkpath(QFileInfo(program).path());
        EXPECT_TRUE(QFile::copy(demos.next(), program));
        auto registry = OpenSqliteRegistry(device_.registryPath().toStdString());
        HKEY key = 0;
        EXPECT_EQ(registry->CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Talvo", 0, &key), ERROR_SUCCESS);
        const std::uint8_t welcomed[4] = {2, 0, 0, 0};
        EXPECT_EQ(registry->SetValue(key, u"First Time Run", REG_DWORD, welcomed, 4), ERROR_SUCCESS);
        return program;
    }

    static qint64 playedSeconds(const QString& capture)
    {
        QFile file(capture);
        if (!file.open(QIODevice::ReadOnly) || file.size() <= kWavHeaderBytes)
            return 0;
        const QByteArray header = file.read(kWavHeaderBytes);
        const auto* rate = reinterpret_cast<const std::uint8_t*>(header.constData() + kByteRateOffset);
        const qint64 bytesPerSecond = rate[0] | rate[1] << 8 | rate[2] << 16 | qint64(rate[3]) << 24;
        return bytesPerSecond > 0 ? (file.size() - kWavHeaderBytes) / bytesPerSecond : 0;
    }

    std::uint32_t savedPosition()
    {
        auto registry = OpenSqliteRegistry(device_.registryPath().toStdString());
        HKEY data = 0;
        std::u16string name;
        if (registry->OpenKey(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Talvo\\AudioData", KEY_READ, &data) !=
                ERROR_SUCCESS ||
            registry->EnumKey(data, 0, &name) != ERROR_SUCCESS)
            return 0;
        HKEY program = 0;
        std::uint8_t bytes[4] = {};
        DWORD size = 4;
        if (registry->OpenKey(data, name, KEY_READ, &program) != ERROR_SUCCESS ||
            registry->QueryValue(program, u"play_pos", nullptr, bytes, &size) != ERROR_SUCCESS)
            return 0;
        return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | std::uint32_t(bytes[3]) << 24;
    }

    TestDevice device_;
    QString weston_;
    QProcessEnvironment environment_;
    QProcess compositor_;
    QProcess player_;
};

TEST_F(WaylandPlayer, PlaysADemoProgramNativelyAndQuitsCleanly)
{
    startCompositor();
    const QString program = prepareDevice();
    const QString capture = device_.path(QStringLiteral("played.wav"));
    QProcessEnvironment environment = environment_;
    environment.insert(QStringLiteral("WAYLAND_DISPLAY"), kSocket);
    // A desktop's X display beside it must not draw the player away from Wayland.
    environment.insert(QStringLiteral("DISPLAY"), QStringLiteral(":1999"));
    environment.insert(QStringLiteral("TALVOPLAYER_AUDIO"), QStringLiteral("capture:%1:4").arg(capture));
    // Under the sanitizers: Qt's Wayland platform leaves allocations in
    // libraries that are unloaded before the exit-time leak check, so their
    // reports name no module and cannot be told apart; the offscreen and X
    // runs check the player's own code for leaks.
    environment.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("detect_leaks=0"));
    player_.setProcessEnvironment(environment);
    player_.setProcessChannelMode(QProcess::ForwardedChannels);
    player_.start(kPlayer, {QStringLiteral("-File:") + program});
    ASSERT_TRUE(player_.waitForStarted());

    EXPECT_TRUE(WaitFor(
        [&] { return playedSeconds(capture) >= kPlayedSeconds || player_.state() == QProcess::NotRunning; }));
    ASSERT_EQ(player_.state(), QProcess::Running)
        << "the player ended before it played: exit " << player_.exitCode();
    ::kill(static_cast<pid_t>(player_.processId()), SIGTERM);
    ASSERT_TRUE(player_.waitForFinished(kPatienceMs));
    EXPECT_EQ(player_.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(player_.exitCode(), 0);
    EXPECT_GT(QFileInfo(capture).size(), kWavHeaderBytes);
    EXPECT_GT(savedPosition(), 0u) << "closing saves where the listener was";
    EXPECT_TRUE(device_.messages().isEmpty()) << device_.messages().join('\n').toStdString();
}

} // namespace
} // namespace talvo::test
