// The real player killed at random moments while playing: each restart must
// resume at most two seconds of listening before the point the killed player
// had reached.  The program's samples name their own time in milliseconds, and
// the captured output of each run tells where it started and how far it got,
// without asking the player.
#include "platform/Registry.h"
#include "settings/SettingsStore.h"
#include "tests/integration/playback/TimeCodedProgram.h"
#include "tests/support/TestDevice.h"

#include <QProcess>
#include <QThread>
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <random>

namespace talvo::test {
namespace {

const QString kPlayer = QStringLiteral(TALVO_BUILD_DIR "/bin/talvoplayer");

constexpr std::uint32_t kProgramSeconds = 900;
// What may be lost: the saving period, and one packet, to which a resume rounds.
constexpr std::uint32_t kAllowedLossMs = 2000 + kTimeCodePacketFrames;

int KillCount()
{
    const char* text = std::getenv("TALVO_KILL_COUNT");
    return text ? std::max(1, std::atoi(text)) : 12;
}

TEST(KilledPlayer, ResumesAtMostTheSavingPeriodBeforeThePointReached)
{
    TestDevice device;
    device.UsePrivateRuntime();
    {
        auto registry = OpenSqliteRegistry(device.registryPath().toStdString());
        ASSERT_TRUE(registry);
        SettingsStore settings(*registry);
        settings.SetFirstTimeRun(2);
        settings.SetVolume(65535); // full on both channels: the capture holds the samples unchanged
    }
    const QString program =
        WriteTimeCodedProgram(device.path("music/Author/Clock/clock.zq"), kProgramSeconds);

    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int> playMs(0, 3000);
    std::optional<std::uint32_t> reached;
    std::vector<std::uint32_t> losses;
    const int kills = KillCount();
    for (int run = 0; run <= kills; ++run) {
        const QString capture = device.path(QStringLiteral("run%1.wav").arg(run));
        device.set("TALVOPLAYER_AUDIO", ("capture:" + capture).toUtf8().constData());
        QProcess player;
        player.setProcessChannelMode(QProcess::ForwardedChannels);
        player.start(kPlayer, {QStringLiteral("-File:") + program});
        ASSERT_TRUE(player.waitForStarted());
        std::optional<Heard> heard;
        for (int wait = 0; wait < 400 && !heard; ++wait) {
            QThread::msleep(25);
            heard = ReadCapture(capture);
        }
        ASSERT_TRUE(heard) << "run " << run << " never played";
        if (reached) {
            // Never past what was heard, and never far behind it.
            ASSERT_LE(heard->firstMs, *reached) << "run " << run;
            losses.push_back(*reached - heard->firstMs);
            EXPECT_LE(losses.back(), kAllowedLossMs) << "run " << run;
        }
        if (run == kills) {
            player.kill();
            player.waitForFinished();
            break;
        }
        QThread::msleep(static_cast<unsigned long>(playMs(random)));
        ::kill(static_cast<pid_t>(player.processId()), SIGKILL);
        ASSERT_TRUE(player.waitForFinished(20000));
        heard = ReadCapture(capture);
        ASSERT_TRUE(heard);
        // The last frame heard is stamped with the millisecond it lies in; the
        // point reached is that millisecond's end, where a resume may start.
        reached = heard->lastMs + 1;
    }

    std::sort(losses.begin(), losses.end());
    ASSERT_FALSE(losses.empty());
    RecordProperty("kills", static_cast<int>(losses.size()));
    std::printf("loss over %zu kills: min %u ms, median %u ms, max %u ms\n", losses.size(), losses.front(),
                losses[losses.size() / 2], losses.back());
}

} // namespace
} // namespace talvo::test
