// Choosing the wave output from TALVOPLAYER_AUDIO, and falling back to the
// null device when ALSA will not open.
#include "platform/WaveOut.h"
#include "platform/linux/AlsaWaveOut.h"
#include "platform/null/NullWaveOut.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace talvo {
namespace {

TEST(WaveOutFactory, ChoosesTheDeviceFromTheValue)
{
    for (const char* choice : {"", "alsa", "alsa:hw:0,0", "alsa:pulse"}) {
        auto out = CreateWaveOut(choice);
        EXPECT_TRUE(dynamic_cast<AlsaWaveOut*>(out.get())) << choice;
    }
    for (const char* choice :
         {"null", "null:4", "null:0.5", "null:max", "null:max,late=5,burst=2,miss=9", "null,miss=2",
          "capture:out.wav", "capture:a:b.wav:max", "capture:x,y.wav,burst=3"}) {
        auto out = CreateWaveOut(choice);
        EXPECT_TRUE(dynamic_cast<NullWaveOut*>(out.get())) << choice;
    }
}

TEST(WaveOutFactory, RejectsWhatItDoesNotUnderstandWithAReason)
{
    for (const char* choice : {"oss", "alsa:", "null:fast", "null:0", "null:-2", "null:4x", "null,miss=two",
                               "null,late=", "capture:", "capture::max", "nullx"}) {
        std::string error;
        EXPECT_EQ(CreateWaveOut(choice, &error), nullptr) << choice;
        EXPECT_FALSE(error.empty()) << choice;
    }
}

TEST(WaveOutFactory, CaptureKeepsColonsOfTheFileName)
{
    const auto dir = std::filesystem::temp_directory_path() / "talvo-waveout-factory";
    std::filesystem::create_directories(dir);
    const auto path = dir / "a:b.wav";
    auto out = CreateWaveOut("capture:" + path.string() + ":max");
    ASSERT_TRUE(out);
    const WAVEFORMATEX format{WAVE_FORMAT_PCM, 1, 22050, 22050, 2, 16, 0};
    ASSERT_EQ(out->Open(format, nullptr), MMSYSERR_NOERROR);
    EXPECT_EQ(out->Close(), MMSYSERR_NOERROR);
    EXPECT_TRUE(std::filesystem::exists(path));
    std::filesystem::remove_all(dir);
}

TEST(WaveOutFactory, AnAlsaDeviceThatCannotOpenSaysSoAndStaysClosed)
{
    auto out = CreateWaveOut("alsa:talvo_no_such_device");
    ASSERT_TRUE(out);
    const WAVEFORMATEX format{WAVE_FORMAT_PCM, 2, 22050, 44100, 2, 16, 0};
    EXPECT_NE(out->Open(format, nullptr), MMSYSERR_NOERROR);
    EXPECT_FALSE(out->IsOpen());
}

} // namespace
} // namespace talvo
