// The threaded wave output on the null device: order, Reset, pacing, capture,
// volume, the player's odd format and the simulated faults.
#include "platform/WaveOut.h"
#include "platform/null/NullWaveOut.h"

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

// Collects completions from the device thread.
class Completions {
public:
    WaveOut::DoneCallback Callback()
    {
        return [this](WAVEHDR* header) {
            std::lock_guard lock(mutex_);
            order_.push_back(header);
            threads_.push_back(std::this_thread::get_id());
            changed_.notify_all();
        };
    }
    bool WaitFor(std::size_t count)
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return order_.size() >= count; });
    }
    std::vector<WAVEHDR*> Order() const
    {
        std::lock_guard lock(mutex_);
        return order_;
    }
    std::vector<std::thread::id> Threads() const
    {
        std::lock_guard lock(mutex_);
        return threads_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<WAVEHDR*> order_;
    std::vector<std::thread::id> threads_;
};

// Exactly what the player builds: nAvgBytesPerSec halved, nBlockAlign 2.
WAVEFORMATEX PlayerFormat(std::uint16_t channels, std::uint32_t rate)
{
    return WAVEFORMATEX{WAVE_FORMAT_PCM, channels, rate, (channels * rate * 2) >> 1, 2, 16, 0};
}

struct Slot {
    WAVEHDR header{};
    std::vector<std::int16_t> pcm;
};

std::vector<Slot> MakeSlots(std::size_t count, std::size_t samples)
{
    std::vector<Slot> slots(count);
    for (std::size_t s = 0; s < count; ++s) {
        slots[s].pcm.resize(samples);
        for (std::size_t i = 0; i < samples; ++i) {
            slots[s].pcm[i] = std::int16_t(s * 1000 + i * 7 - 12000);
        }
        slots[s].header.lpData = reinterpret_cast<char*>(slots[s].pcm.data());
        slots[s].header.dwBufferLength = DWORD(samples * 2);
    }
    return slots;
}

void QueueAll(WaveOut& out, std::vector<Slot>& slots)
{
    for (Slot& slot : slots) {
        ASSERT_EQ(out.PrepareHeader(&slot.header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
        ASSERT_EQ(out.Write(&slot.header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    }
}

std::vector<std::uint8_t> ReadFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::uint32_t Le32(const std::vector<std::uint8_t>& b, std::size_t at)
{
    return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | std::uint32_t(b[at + 3]) << 24;
}

std::uint16_t Le16(const std::vector<std::uint8_t>& b, std::size_t at)
{
    return std::uint16_t(b[at] | b[at + 1] << 8);
}

class WaveOutTest : public ::testing::Test {
protected:
    std::filesystem::path capturePath =
        std::filesystem::temp_directory_path() /
        ("talvo-waveout-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "-" +
         ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".wav");
    void TearDown() override { std::filesystem::remove(capturePath); }
};

TEST_F(WaveOutTest, BuffersCompleteInQueueOrderOnTheDeviceThread)
{
    NullWaveOut out(NullWaveOut::kUnpaced);
    Completions done;
    ASSERT_EQ(out.Open(PlayerFormat(1, 22050), done.Callback()), MMSYSERR_NOERROR);
    auto slots = MakeSlots(6, 500);
    QueueAll(out, slots);
    ASSERT_TRUE(done.WaitFor(6));
    const auto order = done.Order();
    ASSERT_EQ(order.size(), 6u);
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(order[i], &slots[i].header);
        EXPECT_EQ(slots[i].header.dwFlags, WHDR_DONE | WHDR_PREPARED);
        EXPECT_NE(done.Threads()[i], std::this_thread::get_id());
        EXPECT_EQ(out.UnprepareHeader(&slots[i].header, sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    }
    EXPECT_EQ(out.Close(), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, HeaderAndHandleRulesMatchThePlatform)
{
    NullWaveOut out(1.0);
    Completions done;
    auto slots = MakeSlots(2, 22050); // a second each: still queued while we look
    EXPECT_EQ(out.PrepareHeader(&slots[0].header, sizeof(WAVEHDR)), MMSYSERR_INVALHANDLE);
    EXPECT_EQ(out.Reset(), MMSYSERR_INVALHANDLE);
    EXPECT_EQ(out.Close(), MMSYSERR_INVALHANDLE);

    WAVEFORMATEX adpcm = PlayerFormat(1, 22050);
    adpcm.wFormatTag = 2;
    EXPECT_EQ(out.Open(adpcm, done.Callback()), WAVERR_BADFORMAT);
    WAVEFORMATEX noChannels = PlayerFormat(0, 22050);
    EXPECT_EQ(out.Open(noChannels, done.Callback()), WAVERR_BADFORMAT);

    ASSERT_EQ(out.Open(PlayerFormat(1, 22050), done.Callback()), MMSYSERR_NOERROR);
    EXPECT_EQ(out.Open(PlayerFormat(1, 22050), done.Callback()), MMSYSERR_ALLOCATED);
    EXPECT_EQ(out.Write(&slots[0].header, sizeof(WAVEHDR)), WAVERR_UNPREPARED);
    EXPECT_EQ(out.PrepareHeader(&slots[0].header, 16), MMSYSERR_INVALPARAM);
    QueueAll(out, slots);
    EXPECT_EQ(out.Write(&slots[0].header, sizeof(WAVEHDR)), WAVERR_STILLPLAYING);
    EXPECT_EQ(out.UnprepareHeader(&slots[1].header, sizeof(WAVEHDR)), WAVERR_STILLPLAYING);
    EXPECT_EQ(out.Close(), WAVERR_STILLPLAYING);
    EXPECT_EQ(out.Reset(), MMSYSERR_NOERROR);
    EXPECT_EQ(out.Close(), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, ResetReturnsEveryQueuedBufferBeforeItReturns)
{
    NullWaveOut out(1.0);
    Completions done;
    ASSERT_EQ(out.Open(PlayerFormat(2, 22050), done.Callback()), MMSYSERR_NOERROR);
    auto slots = MakeSlots(4, 2 * 22050);
    QueueAll(out, slots);
    EXPECT_EQ(out.Reset(), MMSYSERR_NOERROR);
    const auto order = done.Order(); // no waiting: Reset has delivered them all
    ASSERT_EQ(order.size(), 4u);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(order[i], &slots[i].header);
        EXPECT_EQ(slots[i].header.dwFlags & (WHDR_DONE | WHDR_INQUEUE), WHDR_DONE);
    }
    // The device plays on after a reset.
    for (Slot& slot : slots) {
        slot.header.dwBufferLength = 400;
    }
    QueueAll(out, slots);
    ASSERT_TRUE(done.WaitFor(8));
    EXPECT_EQ(done.Order()[4], &slots[0].header);
    EXPECT_EQ(out.Close(), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, NullDevicePacesAtItsSpeed)
{
    // One second of audio at 8x takes at least an eighth of a second, and
    // completes buffer by buffer rather than all at once.
    NullWaveOut out(8.0);
    Completions done;
    std::vector<std::size_t> doneSeenAtCallback;
    auto slots = MakeSlots(4, 22050 / 4);
    std::mutex mutex;
    auto record = done.Callback();
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(out.Open(PlayerFormat(1, 22050),
                       [&](WAVEHDR* header) {
                           std::size_t finished = 0;
                           for (const Slot& slot : slots) {
                               finished += (slot.header.dwFlags & WHDR_DONE) != 0;
                           }
                           {
                               std::lock_guard lock(mutex);
                               doneSeenAtCallback.push_back(finished);
                           }
                           record(header);
                       }),
              MMSYSERR_NOERROR);
    QueueAll(out, slots);
    ASSERT_TRUE(done.WaitFor(4));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(125));
    EXPECT_EQ(doneSeenAtCallback, (std::vector<std::size_t>{1, 2, 3, 4}));
    EXPECT_EQ(out.Close(), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, CaptureHoldsExactlyWhatWasPlayedInTheOpenedFormat)
{
    auto out = CreateWaveOut("capture:" + capturePath.string() + ":max");
    ASSERT_TRUE(out);
    Completions done;
    ASSERT_EQ(out->Open(PlayerFormat(2, 11025), done.Callback()), MMSYSERR_NOERROR);
    auto slots = MakeSlots(3, 1000);
    // Stereo frames are 4 bytes whatever nBlockAlign says: a trailing half
    // frame is not played.
    slots[1].header.dwBufferLength = 1002;
    QueueAll(*out, slots);
    ASSERT_TRUE(done.WaitFor(3));
    ASSERT_EQ(out->Reset(), MMSYSERR_NOERROR);

    std::vector<std::uint8_t> expected;
    for (const Slot& slot : slots) {
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(slot.pcm.data());
        expected.insert(expected.end(), bytes, bytes + slot.header.dwBufferLength / 4 * 4);
    }
    const auto file = ReadFile(capturePath); // the header is final after Reset
    ASSERT_EQ(file.size(), 44 + expected.size());
    EXPECT_EQ(std::memcmp(file.data(), "RIFF", 4), 0);
    EXPECT_EQ(Le32(file, 4), 36 + expected.size());
    EXPECT_EQ(std::memcmp(file.data() + 8, "WAVEfmt ", 8), 0);
    EXPECT_EQ(Le16(file, 20), 1);
    EXPECT_EQ(Le16(file, 22), 2);
    EXPECT_EQ(Le32(file, 24), 11025u);
    EXPECT_EQ(Le32(file, 28), 11025u * 4);
    EXPECT_EQ(Le16(file, 32), 4);
    EXPECT_EQ(Le16(file, 34), 16);
    EXPECT_EQ(Le32(file, 40), expected.size());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), file.begin() + 44));

    // Reopened with the same format, the capture goes on in the same file.
    ASSERT_EQ(out->Close(), MMSYSERR_NOERROR);
    ASSERT_EQ(out->Open(PlayerFormat(2, 11025), done.Callback()), MMSYSERR_NOERROR);
    auto more = MakeSlots(1, 100);
    QueueAll(*out, more);
    ASSERT_TRUE(done.WaitFor(4));
    ASSERT_EQ(out->Close(), MMSYSERR_NOERROR);
    EXPECT_EQ(Le32(ReadFile(capturePath), 40), expected.size() + 200);
}

TEST_F(WaveOutTest, VolumeIsAppliedPerChannelAndSetWhileClosedCarriesIntoOpen)
{
    NullWaveOut out(NullWaveOut::kUnpaced, capturePath.string());
    Completions done;
    constexpr DWORD kLeftFullRightQuarter = 0x4000FFFF;
    ASSERT_EQ(out.SetVolume(kLeftFullRightQuarter), MMSYSERR_NOERROR);
    ASSERT_EQ(out.Open(PlayerFormat(2, 22050), done.Callback()), MMSYSERR_NOERROR);
    auto slots = MakeSlots(1, 2000);
    QueueAll(out, slots);
    ASSERT_TRUE(done.WaitFor(1));
    ASSERT_EQ(out.Reset(), MMSYSERR_NOERROR);
    const auto file = ReadFile(capturePath);
    ASSERT_EQ(file.size(), 44 + 4000u);
    for (std::size_t i = 0; i < 2000; ++i) {
        std::int16_t played;
        std::memcpy(&played, file.data() + 44 + 2 * i, 2);
        const std::int32_t original = slots[0].pcm[i];
        const std::int32_t wanted = i % 2 == 0 ? original : original * 0x4000 / 0xFFFF;
        ASSERT_EQ(played, wanted) << "sample " << i;
    }
    DWORD volume = 0;
    EXPECT_EQ(out.GetVolume(&volume), MMSYSERR_NOERROR);
    EXPECT_EQ(volume, kLeftFullRightQuarter);
    EXPECT_EQ(out.Close(), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, BurstyCompletionsArriveInGroups)
{
    auto out = CreateWaveOut("null:max,burst=2");
    ASSERT_TRUE(out);
    auto slots = MakeSlots(6, 300);
    Completions done;
    auto record = done.Callback();
    std::vector<std::size_t> doneSeen;
    ASSERT_EQ(out->Open(PlayerFormat(1, 22050),
                        [&](WAVEHDR* header) {
                            std::size_t finished = 0;
                            for (const Slot& slot : slots) {
                                finished += (slot.header.dwFlags & WHDR_DONE) != 0;
                            }
                            doneSeen.push_back(finished); // only the device thread appends
                            record(header);
                        }),
              MMSYSERR_NOERROR);
    QueueAll(*out, slots);
    ASSERT_TRUE(done.WaitFor(6));
    // A pair is marked done before the first of its two callbacks runs.
    for (std::size_t k = 0; k < doneSeen.size(); ++k) {
        EXPECT_GE(doneSeen[k], (k / 2 + 1) * 2) << "callback " << k;
    }
    EXPECT_EQ(done.Order().back(), &slots[5].header);
    EXPECT_EQ(out->Close(), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, LateCompletionsLagWhileTheDevicePlaysOn)
{
    auto out = CreateWaveOut("capture:" + capturePath.string() + ":max,late=300");
    ASSERT_TRUE(out);
    Completions done;
    auto record = done.Callback();
    std::vector<std::uintmax_t> capturedAtCallback;
    ASSERT_EQ(out->Open(PlayerFormat(1, 22050),
                        [&](WAVEHDR* header) {
                            capturedAtCallback.push_back(std::filesystem::file_size(capturePath));
                            record(header);
                        }),
              MMSYSERR_NOERROR);
    auto slots = MakeSlots(3, 100);
    QueueAll(*out, slots);
    ASSERT_TRUE(done.WaitFor(3));
    // By the first completion the device has already played all three.
    EXPECT_EQ(capturedAtCallback.front(), 44u + 3 * 200);
    EXPECT_EQ(done.Order(), (std::vector<WAVEHDR*>{&slots[0].header, &slots[1].header, &slots[2].header}));
    EXPECT_EQ(out->Close(), MMSYSERR_NOERROR);
}

TEST_F(WaveOutTest, AMissingCompletionIsOnlyReturnedByReset)
{
    auto out = CreateWaveOut("null:max,miss=3");
    ASSERT_TRUE(out);
    Completions done;
    ASSERT_EQ(out->Open(PlayerFormat(1, 22050), done.Callback()), MMSYSERR_NOERROR);
    auto slots = MakeSlots(4, 300);
    QueueAll(*out, slots);
    ASSERT_TRUE(done.WaitFor(3));
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // give a wrong fourth one a chance
    auto order = done.Order();
    EXPECT_EQ(order, (std::vector<WAVEHDR*>{&slots[0].header, &slots[1].header, &slots[3].header}));
    EXPECT_TRUE(slots[2].header.dwFlags & WHDR_INQUEUE);
    EXPECT_EQ(out->Close(), WAVERR_STILLPLAYING);
    ASSERT_EQ(out->Reset(), MMSYSERR_NOERROR);
    order = done.Order();
    ASSERT_EQ(order.size(), 4u);
    EXPECT_EQ(order[3], &slots[2].header);
    EXPECT_EQ(out->Close(), MMSYSERR_NOERROR);
}

} // namespace
} // namespace talvo
