// A long program played to its end by the real player on the paced null
// output at many times real time: every millisecond is heard once, in order,
// to the last; the device never runs dry; and the player's memory does not
// grow from the first minute to the last.  TALVO_SOAK_AUDIO_SECONDS sets the
// program's length.
#include "library/ProgramStateStore.h"
#include "playback/AudioOutput.h"
#include "settings/SettingsStore.h"
#include "tests/integration/playback/TimeCodedProgram.h"
#include "tests/integration/soak/SoakSize.h"
#include "tests/support/TestDevice.h"

#include <QProcess>
#include <QThread>
#include <csignal>

namespace talvo::test {
namespace {

// Fast, yet with four buffers of 2.5 s each still a second ahead of the device,
// so that a busy machine does not starve it.
constexpr int kSpeed = 10;
// What a process's resident memory may vary by without growing: allocator
// pools, and pages of the program file the kernel maps in and out.
constexpr long kRssSlackKb = 8 * 1024;
// A buffer holds five half seconds; the program's last, partial buffer is
// dropped by design, so that much of its end may go unheard.
constexpr std::uint32_t kOneBufferMs = AudioOutput::kUnitsPerBuffer * 500;

long ResidentKb(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLong();
    }
    return -1;
}

TEST(AudioSoak, AWholeProgramIsHeardOnceInOrderWithoutUnderrunOrGrowth)
{
    const auto seconds = static_cast<std::uint32_t>(SoakSize("TALVO_SOAK_AUDIO_SECONDS", 150));
    TestDevice device;
    device.UsePrivateRuntime();
    {
        auto registry = OpenSqliteRegistry(device.registryPath().toStdString());
        ASSERT_TRUE(registry);
        SettingsStore(*registry).SetFirstTimeRun(2);
        SettingsStore(*registry).SetVolume(65535); // the capture holds the samples unchanged
    }
    const QString program = WriteTimeCodedProgram(device.path("music/Author/Clock/clock.zq"), seconds);
    const QString capture = device.path("capture.wav");
    device.set("TALVOPLAYER_AUDIO", QStringLiteral("capture:%1:%2").arg(capture).arg(kSpeed));
    device.set("TALVOPLAYER_TRACE", "1");

    QProcess player;
    player.setProcessChannelMode(QProcess::SeparateChannels);
    player.start(QStringLiteral(TALVO_BUILD_DIR "/bin/talvoplayer"), {"-File:" + program});
    ASSERT_TRUE(player.waitForStarted());
    const qint64 endBytes = (qint64{seconds} * 1000 - kOneBufferMs) * 4;
    const auto played = [&] {
        return QFileInfo(capture).size() - 44;
    };
    // The first minute of listening: the player is warm, its program open.
    while (played() < 60 * qint64{kTimeCodeRate} * 4 && player.state() == QProcess::Running)
        QThread::msleep(50);
    const long startKb = ResidentKb(player.processId());
    // Played out: past the last whole buffer, and nothing more for a second.
    const qint64 timeout = qint64{seconds} * 1000 / kSpeed * 3 + 30000;
    qint64 lastSize = -1;
    for (qint64 waited = 0; waited < timeout; waited += 1000) {
        if (played() >= endBytes && played() == lastSize)
            break;
        lastSize = played();
        QThread::msleep(1000);
    }
    const long endKb = ResidentKb(player.processId());
    ::kill(static_cast<pid_t>(player.processId()), SIGTERM);
    ASSERT_TRUE(player.waitForFinished(20000));
    const QByteArray trace = player.readAllStandardError();
    DWORD keptMs = 0;
    {
        auto registry = OpenSqliteRegistry(device.registryPath().toStdString());
        ASSERT_TRUE(registry);
        ProgramStateStore(*registry).ReadPlayPosition(QStringLiteral("clock"), &keptMs);
    }

    const std::optional<Heard> heard = ReadCapture(capture);
    ASSERT_TRUE(heard);
    std::printf("program: %u s\nframes heard: %llu\nlast heard: %u ms\nposition kept: %u ms\njumps: %llu\n"
                "underruns: %lld\nRSS at the first minute: %ld kB\nRSS at the end: %ld kB\n",
                seconds, static_cast<unsigned long long>(heard->frames), heard->lastMs, keptMs,
                static_cast<unsigned long long>(heard->jumps), static_cast<long long>(trace.count("ran dry")),
                startKb, endKb);
    // Every millisecond from the first once and in order, to within one buffer of the end.
    EXPECT_EQ(heard->firstMs, 0u);
    EXPECT_EQ(heard->jumps, 0u);
    EXPECT_EQ(heard->frames, std::uint64_t{heard->lastMs} + 1);
    EXPECT_LT(seconds * 1000 - (heard->lastMs + 1), kOneBufferMs);
    // The position kept is where the heard audio ended, to within one buffer.
    EXPECT_LE(std::max(keptMs, heard->lastMs + 1) - std::min(keptMs, heard->lastMs + 1), kOneBufferMs);
    EXPECT_EQ(trace.count("ran dry"), 0) << trace.toStdString();
    ASSERT_GT(startKb, 0);
    EXPECT_LE(endKb, startKb + kRssSlackKb);
}

} // namespace
} // namespace talvo::test
