// The threaded wave output on the null device: order, Reset, pacing, capture,
// volume, the player's odd format and the simulated faults.
#include "platform/WaveOut.h"
#include "platform/null/NullWaveOut.h"

#include <QProcess>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <thread>
#include <vector>

namespace talvo {
namespace {

namespace fs = std::filesystem;

// Exactly what the player builds: nAvgBytesPerSec halved, nBlockAlign 2.
WAVEFORMATEX PlayerFormat(std::uint16_t channels, std::uint32_t rate)
{
    return WAVEFORMATEX{WAVE_FORMAT_PCM, channels, rate, (channels * rate * 2) >> 1, 2, 16, 0};
}

std::vector<std::uint8_t> ReadFile(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::uint32_t Le(const std::vector<std::uint8_t>& b, std::size_t at, int bytes = 4)
{
    std::uint32_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) {
        v = v << 8 | b[at + i];
    }
    return v;
}

// Buffers of distinct samples, and what the device thread did with them.
class WaveOutTest : public ::testing::Test {
protected:
    void TearDown() override { fs::remove(capturePath); }

    void MakeSlots(std::size_t count, std::size_t samples)
    {
        buffers.assign(count, {});
        for (std::size_t s = 0; s < count; ++s) {
            for (std::size_t i = 0; i < samples; ++i) {
                buffers[s].pcm.push_back(std::int16_t(s * 1000 + i * 7 - 12000));
            }
            buffers[s].header.lpData = reinterpret_cast<char*>(buffers[s].pcm.data());
            buffers[s].header.dwBufferLength = DWORD(samples * 2);
        }
    }
    MMRESULT Open(WaveOut& out, const WAVEFORMATEX& format)
    {
        return out.Open(format, [this](WAVEHDR* header) {
            // Holding the test's lock keeps this read of every header's flags
            // apart from QueueAll, which sets them on the test thread.
            std::lock_guard lock(mutex);
            std::size_t finished = 0;
            for (const Slot& slot : buffers) {
                finished += (slot.header.dwFlags & WHDR_DONE) != 0;
            }
            order.push_back(header);
            doneAtCallback.push_back(finished);
            onDeviceThread = onDeviceThread && std::this_thread::get_id() != testThread;
            captureSize.push_back(fs::exists(capturePath) ? fs::file_size(capturePath) : 0);
            changed.notify_all();
        });
    }
    void QueueAll(WaveOut& out, std::size_t from = 0)
    {
        std::lock_guard lock(mutex);
        for (std::size_t i = from; i < buffers.size(); ++i) {
            ASSERT_EQ(out.PrepareHeader(&buffers[i].header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
            ASSERT_EQ(out.Write(&buffers[i].header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
        }
    }
    bool WaitFor(std::size_t count)
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(20), [&] { return order.size() >= count; });
    }
    void Forget()
    {
        order.clear();
        doneAtCallback.clear();
        captureSize.clear();
    }
    std::vector<WAVEHDR*> Headers(std::initializer_list<int> indexes)
    {
        std::vector<WAVEHDR*> headers;
        for (int i : indexes) {
            headers.push_back(&buffers[i].header);
        }
        return headers;
    }

    struct Slot {
        WAVEHDR header{};
        std::vector<std::int16_t> pcm;
    };
    std::vector<Slot> buffers;
    fs::path capturePath = fs::temp_directory_path() /
                           ("talvo-waveout-" + std::to_string(getpid()) + "-" +
                            ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".wav");
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<WAVEHDR*> order;
    std::vector<std::size_t> doneAtCallback;
    std::vector<std::uintmax_t> captureSize;
    std::thread::id testThread = std::this_thread::get_id();
    bool onDeviceThread = true;
};

TEST_F(WaveOutTest, BuffersCompleteInQueueOrderOnTheDeviceThread)
{
    NullWaveOut out(NullWaveOut::kUnpaced);
    MakeSlots(6, 500);
    ASSERT_EQ(Open(out, PlayerFormat(1, 22050)), MMSYSERR_NOERROR);
    QueueAll(out);
    ASSERT_TRUE(WaitFor(6));
    EXPECT_EQ(order, Headers({0, 1, 2, 3, 4, 5}));
    EXPECT_TRUE(onDeviceThread);
    for (Slot& slot : buffers) {
        EXPECT_EQ(slot.header.dwFlags, WHDR_DONE | WHDR_PREPARED);
        EXPECT_EQ(out.UnprepareHeader(&slot.header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    }
    EXPECT_EQ(out.Close(), MMSYSERR_NOERROR);
}

// The player's thread has often started a child (the bus, a tool) before it
// opens the output.  Under ThreadSanitizer that start used to leave the thread's
// locks unseen, so every buffer handed over looked like a race.
TEST_F(WaveOutTest, BuffersHandedOverAfterAChildProcessStartStayOrdered)
{
    QProcess child;
    child.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("exit 7")});
    ASSERT_TRUE(child.waitForFinished(20000));
    EXPECT_EQ(child.exitCode(), 7);
    NullWaveOut out(NullWaveOut::kUnpaced);
    MakeSlots(4, 500);
    ASSERT_EQ(Open(out, PlayerFormat(1, 22050)), MMSYSERR_NOERROR);
    QueueAll(out);
    ASSERT_TRUE(WaitFor(4));
    EXPECT_EQ(order, Headers({0, 1, 2, 3}));
    for (Slot& slot : buffers)
        EXPECT_EQ(out.UnprepareHeader(&slot.header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    EXPECT_EQ(out.Close(), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, HeaderAndHandleRulesMatchThePlatform)
{
    NullWaveOut out(1.0);
    MakeSlots(2, 22050); // a second each: still queued while we look
    EXPECT_EQ(out.PrepareHeader(&buffers[0].header, sizeof(WAVEHDR)), MMSYSERR_INVALHANDLE);
    EXPECT_EQ(out.Reset(), MMSYSERR_INVALHANDLE);
    EXPECT_EQ(out.Close(), MMSYSERR_INVALHANDLE);
    WAVEFORMATEX adpcm = PlayerFormat(1, 22050);
    adpcm.wFormatTag = 2;
    EXPECT_EQ(Open(out, adpcm), WAVERR_BADFORMAT);
    EXPECT_EQ(Open(out, PlayerFormat(0, 22050)), WAVERR_BADFORMAT);

    ASSERT_EQ(Open(out, PlayerFormat(1, 22050)), MMSYSERR_NOERROR);
    EXPECT_EQ(Open(out, PlayerFormat(1, 22050)), MMSYSERR_ALLOCATED);
    EXPECT_EQ(out.Write(&buffers[0].header, sizeof(WAVEHDR)), WAVERR_UNPREPARED);
    EXPECT_EQ(out.PrepareHeader(&buffers[0].header, 16), MMSYSERR_INVALPARAM);
    QueueAll(out);
    EXPECT_EQ(out.Write(&buffers[0].header, sizeof(WAVEHDR)), WAVERR_STILLPLAYING);
    EXPECT_EQ(out.UnprepareHeader(&buffers[1].header, sizeof(WAVEHDR)), WAVERR_STILLPLAYING);
    EXPECT_EQ(out.Close(), WAVERR_STILLPLAYING);
    EXPECT_EQ(out.Reset(), MMSYSERR_NOERROR);
    EXPECT_EQ(out.Close(), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, ResetReturnsEveryQueuedBufferBeforeItReturnsAndPlayingGoesOn)
{
    NullWaveOut out(1.0);
    MakeSlots(4, 2 * 22050);
    ASSERT_EQ(Open(out, PlayerFormat(2, 22050)), MMSYSERR_NOERROR);
    QueueAll(out);
    EXPECT_EQ(out.Reset(), MMSYSERR_NOERROR);
    EXPECT_EQ(order, Headers({0, 1, 2, 3})); // no waiting: Reset has delivered them all
    for (Slot& slot : buffers) {
        EXPECT_EQ(slot.header.dwFlags & (WHDR_DONE | WHDR_INQUEUE), WHDR_DONE);
        slot.header.dwBufferLength = 400;
    }
    QueueAll(out);
    ASSERT_TRUE(WaitFor(8));
    EXPECT_EQ(order[4], &buffers[0].header);
    EXPECT_EQ(out.Close(), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, NullDevicePacesAtItsSpeed)
{
    // A second of audio at 8x takes at least an eighth of a second, and
    // completes buffer by buffer rather than all at once.
    NullWaveOut out(8.0);
    MakeSlots(4, 22050 / 4);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(Open(out, PlayerFormat(1, 22050)), MMSYSERR_NOERROR);
    QueueAll(out);
    ASSERT_TRUE(WaitFor(4));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(125));
    EXPECT_EQ(doneAtCallback, (std::vector<std::size_t>{1, 2, 3, 4}));
    EXPECT_EQ(out.Close(), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, CaptureHoldsExactlyWhatWasPlayedInTheOpenedFormat)
{
    auto out = CreateWaveOut("capture:" + capturePath.string() + ":max");
    ASSERT_TRUE(out);
    MakeSlots(3, 1000);
    // Stereo frames are 4 bytes whatever nBlockAlign says: a trailing half
    // frame is not played.
    buffers[1].header.dwBufferLength = 1002;
    ASSERT_EQ(Open(*out, PlayerFormat(2, 11025)), MMSYSERR_NOERROR);
    QueueAll(*out);
    ASSERT_TRUE(WaitFor(3));
    ASSERT_EQ(out->Reset(), MMSYSERR_NOERROR);

    std::vector<std::uint8_t> expected;
    for (const Slot& slot : buffers) {
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(slot.pcm.data());
        expected.insert(expected.end(), bytes, bytes + slot.header.dwBufferLength / 4 * 4);
    }
    const auto file = ReadFile(capturePath); // the header is final after Reset
    ASSERT_EQ(file.size(), 44 + expected.size());
    EXPECT_EQ(std::string(file.begin(), file.begin() + 4), "RIFF");
    EXPECT_EQ(Le(file, 4), 36 + expected.size());
    EXPECT_EQ(std::string(file.begin() + 8, file.begin() + 16), "WAVEfmt ");
    const std::vector<std::uint32_t> fmt{Le(file, 20, 2), Le(file, 22, 2), Le(file, 24),
                                         Le(file, 28),    Le(file, 32, 2), Le(file, 34, 2)};
    EXPECT_EQ(fmt, (std::vector<std::uint32_t>{1, 2, 11025, 11025 * 4, 4, 16}));
    EXPECT_EQ(Le(file, 40), expected.size());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), file.begin() + 44));

    // Reopened with the same format, the capture goes on in the same file.
    ASSERT_EQ(out->Close(), MMSYSERR_NOERROR);
    ASSERT_EQ(Open(*out, PlayerFormat(2, 11025)), MMSYSERR_NOERROR);
    buffers[0].header.dwBufferLength = 200;
    QueueAll(*out);
    ASSERT_TRUE(WaitFor(6));
    ASSERT_EQ(out->Close(), MMSYSERR_NOERROR);
    EXPECT_EQ(Le(ReadFile(capturePath), 40), 2 * expected.size() - 2000 + 200);
}

TEST_F(WaveOutTest, VolumeIsAppliedPerChannelAndSetWhileClosedCarriesIntoOpen)
{
    NullWaveOut out(NullWaveOut::kUnpaced, capturePath.string());
    constexpr DWORD kLeftFullRightQuarter = 0x4000FFFF;
    ASSERT_EQ(out.SetVolume(kLeftFullRightQuarter), MMSYSERR_NOERROR);
    MakeSlots(1, 2000);
    ASSERT_EQ(Open(out, PlayerFormat(2, 22050)), MMSYSERR_NOERROR);
    QueueAll(out);
    ASSERT_TRUE(WaitFor(1));
    ASSERT_EQ(out.Reset(), MMSYSERR_NOERROR);
    const auto file = ReadFile(capturePath);
    ASSERT_EQ(file.size(), 44 + 4000u);
    for (std::size_t i = 0; i < 2000; ++i) {
        const std::int32_t original = buffers[0].pcm[i];
        const std::int32_t wanted = i % 2 == 0 ? original : original * 0x4000 / 0xFFFF;
        ASSERT_EQ(std::int16_t(Le(file, 44 + 2 * i, 2)), wanted) << "sample " << i;
    }
    EXPECT_EQ(out.Close(), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, SimulatedFaults)
{
    // Bursts: a pair is marked done before the first of its callbacks runs.
    // A device with nothing more queued lets a short burst go, so the first
    // buffer plays for a second at real time: long enough for this thread to
    // queue the rest on any loaded machine.
    auto bursty = CreateWaveOut("null,burst=2");
    MakeSlots(6, 300);
    buffers[0].pcm.resize(22050);
    buffers[0].header.lpData = reinterpret_cast<char*>(buffers[0].pcm.data());
    buffers[0].header.dwBufferLength = DWORD(buffers[0].pcm.size() * 2);
    ASSERT_EQ(Open(*bursty, PlayerFormat(1, 22050)), MMSYSERR_NOERROR);
    QueueAll(*bursty);
    ASSERT_TRUE(WaitFor(6));
    for (std::size_t k = 0; k < doneAtCallback.size(); ++k) {
        EXPECT_GE(doneAtCallback[k], (k / 2 + 1) * 2) << "callback " << k;
    }
    EXPECT_EQ(bursty->Close(), MMSYSERR_NOERROR);

    // Late: by the first completion the device has already played all three.
    Forget();
    auto late = CreateWaveOut("capture:" + capturePath.string() + ":max,late=300");
    MakeSlots(3, 100);
    ASSERT_EQ(Open(*late, PlayerFormat(1, 22050)), MMSYSERR_NOERROR);
    QueueAll(*late);
    ASSERT_TRUE(WaitFor(3));
    EXPECT_EQ(captureSize.front(), 44u + 3 * 200);
    EXPECT_EQ(order, Headers({0, 1, 2}));
    EXPECT_EQ(late->Close(), MMSYSERR_NOERROR);

    // Missing: the third completion never comes; only Reset returns it.
    Forget();
    auto missing = CreateWaveOut("null:max,miss=3");
    MakeSlots(4, 300);
    ASSERT_EQ(Open(*missing, PlayerFormat(1, 22050)), MMSYSERR_NOERROR);
    QueueAll(*missing);
    ASSERT_TRUE(WaitFor(3));
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // give a wrong fourth one a chance
    EXPECT_EQ(order, Headers({0, 1, 3}));
    EXPECT_TRUE(buffers[2].header.dwFlags & WHDR_INQUEUE);
    EXPECT_EQ(missing->Close(), WAVERR_STILLPLAYING);
    ASSERT_EQ(missing->Reset(), MMSYSERR_NOERROR);
    EXPECT_EQ(order, Headers({0, 1, 3, 2}));
    EXPECT_EQ(missing->Close(), MMSYSERR_NOERROR);
}

} // namespace
} // namespace talvo
