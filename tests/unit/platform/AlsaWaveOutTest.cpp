// The ALSA adapter on ALSA's own "null" device, which takes everything at
// once: the path through snd_pcm without a sound server.  Playing into a real
// server is the alsa_pulse integration test.
#include "platform/linux/AlsaWaveOut.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <vector>

namespace talvo {
namespace {

TEST(AlsaWaveOut, BuffersComeBackInOrderAndResetReturnsTheRest)
{
    AlsaWaveOut out("null");
    std::mutex mutex;
    std::condition_variable cv;
    std::vector<WAVEHDR*> order;
    const WAVEFORMATEX playerStereo{WAVE_FORMAT_PCM, 2, 22050, 44100, 2, 16, 0};
    const MMRESULT opened = out.Open(playerStereo, [&](WAVEHDR* header) {
        std::lock_guard lock(mutex);
        order.push_back(header);
        cv.notify_all();
    });
    if (opened == MMSYSERR_BADDEVICEID) {
        GTEST_SKIP() << "this ALSA has no \"null\" device";
    }
    ASSERT_EQ(opened, MMSYSERR_NOERROR);

    std::vector<std::int16_t> pcm(2 * 22050, 100);
    std::vector<WAVEHDR> headers(8);
    for (std::size_t i = 0; i < headers.size(); ++i) {
        headers[i].lpData = reinterpret_cast<char*>(pcm.data());
        headers[i].dwBufferLength = DWORD(pcm.size() * 2 / (i < 4 ? 8 : 1));
        ASSERT_EQ(out.PrepareHeader(&headers[i], sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    }
    for (std::size_t i = 0; i < 4; ++i) {
        ASSERT_EQ(out.Write(&headers[i], sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    }
    {
        std::unique_lock lock(mutex);
        ASSERT_TRUE(cv.wait_for(lock, std::chrono::seconds(20), [&] { return order.size() == 4; }));
    }
    for (std::size_t i = 4; i < 8; ++i) {
        ASSERT_EQ(out.Write(&headers[i], sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    }
    ASSERT_EQ(out.Reset(), MMSYSERR_NOERROR);
    std::lock_guard lock(mutex);
    ASSERT_EQ(order.size(), 8u);
    for (std::size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(order[i], &headers[i]);
        EXPECT_EQ(headers[i].dwFlags, WHDR_DONE | WHDR_PREPARED);
    }
    EXPECT_EQ(out.Close(), MMSYSERR_NOERROR);
}

} // namespace
} // namespace talvo
