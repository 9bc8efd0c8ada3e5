// The remote-control queue reaching a real main window: records written with
// mq_send, as a Bluetooth bridge writes them.
#include "device/DeviceEvents.h"
#include "tests/integration/playback/PlayerFixture.h"

#include <cstring>
#include <fcntl.h>
#include <mqueue.h>
#include <unistd.h>

namespace talvo::test {
namespace {

// The remote's operation codes.
constexpr std::uint32_t kPlay = 68, kStop = 69, kPause = 70, kRewind = 72, kForward = 75, kBackward = 76;
constexpr std::uint32_t kForwardReleased = 203, kBackwardReleased = 204;

class RemoteControlTest : public PlayerFixture {
protected:
    void SetUp() override
    {
        PlayerFixture::SetUp();
        WritePcmProgram(musicPath("Reader/Book/book.zq"), "book", 600);
        // A queue of this test's own: tests run side by side.
        const std::string name = queueName_;
        makeDeviceServices_ = [name] {
            DeviceServices services;
            services.remoteQueue = CreatePosixRemoteControlQueue(name.c_str());
            return services;
        };
        startPlayer();
        ASSERT_TRUE(frame_->Devices()->HasRemoteControl());
        writer_ = mq_open(queueName_.c_str(), O_WRONLY);
        ASSERT_NE(writer_, static_cast<mqd_t>(-1)) << std::strerror(errno);
    }

    void TearDown() override
    {
        mq_close(writer_);
        frame_.reset();
        mq_unlink(queueName_.c_str());
    }

    void send(std::uint32_t code, std::size_t size = kRemoteRecordSize)
    {
        std::vector<char> record(size);
        std::memcpy(record.data() + 4, &code, sizeof code);
        ASSERT_EQ(mq_send(writer_, record.data(), record.size(), 0), 0) << std::strerror(errno);
    }

    bool playing() { return frame_->Audio().IsPlaying(); }
    bool holding(unsigned timer) { return frame_->IsTimerRunning(timer); }

    const std::string queueName_ = "/talvo-test-remote-" + std::to_string(getpid());
    mqd_t writer_ = static_cast<mqd_t>(-1);
};

TEST_F(RemoteControlTest, PlayStopAndPauseEachToggle)
{
    send(kPlay);
    EXPECT_TRUE(pump([&] { return playing(); }));
    send(kPause);
    EXPECT_TRUE(pump([&] { return !playing(); }));
    send(kStop);
    EXPECT_TRUE(pump([&] { return playing(); }));
}

TEST_F(RemoteControlTest, ScanCodesStartAndEndTheHolds)
{
    send(kForward);
    EXPECT_TRUE(pump([&] { return holding(Timer::FastForwardHold); }));
    send(kForwardReleased);
    EXPECT_TRUE(pump([&] { return !holding(Timer::FastForwardHold); }));
    // The rewind code starts the forward scan, as the remote's bridge expects.
    send(kRewind);
    EXPECT_TRUE(pump([&] { return holding(Timer::FastForwardHold); }));
    send(kForwardReleased);
    send(kBackward);
    EXPECT_TRUE(pump([&] { return holding(Timer::RewindHold); }));
    EXPECT_FALSE(holding(Timer::FastForwardHold));
    send(kBackwardReleased);
    EXPECT_TRUE(pump([&] { return !holding(Timer::RewindHold); }));
}

TEST_F(RemoteControlTest, RecordsOfAnyOtherSizeAreDropped)
{
    // Away from the start, so that a rewind has room to run.
    send(kForward);
    ASSERT_TRUE(pump([&] { return holding(Timer::FastForwardHold); }));
    send(kForwardReleased);
    ASSERT_TRUE(pump([&] { return !holding(Timer::FastForwardHold); }));

    send(kForward, kRemoteRecordSize - 1);
    send(kForward, kRemoteRecordSize + 1);
    send(kForward, 100);
    // Records are handled in order: once this one acts, the others were seen.
    send(kBackward);
    EXPECT_TRUE(pump([&] { return holding(Timer::RewindHold); }));
    EXPECT_FALSE(holding(Timer::FastForwardHold));
}

} // namespace
} // namespace talvo::test
