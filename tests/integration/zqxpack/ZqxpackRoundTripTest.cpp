// Drives the zqxpack executable on generated audio and reads its output back
// through the SDK, as the player will.
#include "zqx/TalvoMetadata.h"
#include "zqx/zqxsdk.h"

#include <gtest/gtest.h>
#include <mpg123.h>
#include <sndfile.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

class Zqxpack : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/zqxpack-test-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string Path(const std::string& name) const { return (dir_ / name).string(); }

    // A voice-like test signal: a gliding tone with harmonics, different per seed.
    std::vector<std::int16_t> Signal(std::uint32_t rate, std::uint32_t channels, double seconds, int seed)
    {
        std::vector<std::int16_t> pcm(std::size_t(seconds * rate) * channels);
        double phase = 0;
        for (std::size_t i = 0; i < pcm.size() / channels; ++i) {
            const double t = double(i) / rate;
            phase += 2 * M_PI * (150 + 40 * seed + 50 * std::sin(t * 2)) / rate;
            const double v = 0.5 * std::sin(phase) + 0.2 * std::sin(3 * phase) + 0.1 * std::sin(5 * phase);
            for (std::uint32_t c = 0; c < channels; ++c)
                pcm[i * channels + c] = std::int16_t(v * (c ? 0.5 : 1.0) * 20000);
        }
        return pcm;
    }

    std::string WriteWav(const std::string& name, std::uint32_t rate, std::uint32_t channels,
                         const std::vector<std::int16_t>& pcm)
    {
        SF_INFO info{};
        info.samplerate = int(rate);
        info.channels = int(channels);
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        SNDFILE* f = sf_open(Path(name).c_str(), SFM_WRITE, &info);
        EXPECT_NE(f, nullptr);
        sf_writef_short(f, pcm.data(), sf_count_t(pcm.size() / channels));
        sf_close(f);
        return Path(name);
    }

    // Runs zqxpack; returns its exit status and leaves its output in `output`.
    int Run(const std::string& args, std::string* output = nullptr)
    {
        const std::string cmd = std::string(ZQXPACK_PATH) + " " + args + " 2>&1";
        FILE* p = popen(cmd.c_str(), "r");
        std::string text;
        char buf[512];
        while (std::fgets(buf, sizeof buf, p))
            text += buf;
        const int status = pclose(p);
        if (output)
            *output = text;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    static std::u16string Wide(const std::string& s) { return std::u16string(s.begin(), s.end()); }

    // Decodes every block through the SDK, as the player's refill loop does.
    static std::vector<std::int16_t> DecodeThroughSdk(const std::string& path)
    {
        ZQXHANDLE h = 0;
        EXPECT_EQ(ZQXOpenFileWinW(&h, Wide(path).c_str()), ZQX_OK);
        std::vector<std::int16_t> pcm;
        std::vector<std::uint8_t> block(ZQX_MAX_BLOCK_BYTES);
        std::vector<std::uint8_t> out(1 << 16);
        std::uint32_t len = 0;
        while (ZQXGetEncodedAudio(h, block.data(), ZQX_MAX_BLOCK_BYTES, &len) == ZQX_OK) {
            std::uint32_t produced = 0;
            EXPECT_EQ(
                ZQXDecodePCMFrame(h, block.data(), len, out.data(), std::uint32_t(out.size()), &produced),
                ZQX_OK);
            const auto* s = reinterpret_cast<const std::int16_t*>(out.data());
            pcm.insert(pcm.end(), s, s + produced / 2);
        }
        ZQXCloseFile(h);
        return pcm;
    }

    static double Snr(const std::vector<std::int16_t>& a, const std::vector<std::int16_t>& b)
    {
        double signal = 0, noise = 0;
        for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
            signal += double(a[i]) * a[i];
            noise += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
        }
        return 10 * std::log10(signal / std::max(noise, 1.0));
    }

    fs::path dir_;
};

// The smallest valid PNG: one white pixel.
const std::vector<std::uint8_t> kOnePixelPng = {
    0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A, 0x00, 0x00, 0x00, 0x0D, 0x49, 0x48,
    0x44, 0x52, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x08, 0x02, 0x00, 0x00,
    0x00, 0x90, 0x77, 0x53, 0xDE, 0x00, 0x00, 0x00, 0x0C, 0x49, 0x44, 0x41, 0x54, 0x08,
    0xD7, 0x63, 0xF8, 0xFF, 0xFF, 0x3F, 0x00, 0x05, 0xFE, 0x02, 0xFE, 0xDC, 0xCC, 0x59,
    0xE7, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4E, 0x44, 0xAE, 0x42, 0x60, 0x82};

} // namespace

TEST_F(Zqxpack, EveryTypeReadsBackThroughTheSdk)
{
    struct Case {
        int type;
        std::uint32_t rate, channels;
        const char* ext;
        double minSnr; // 0: must be exact
    };
    const Case cases[] = {{1, 8000, 1, ".zq", 20},   {2, 16000, 1, ".zq", 20}, {3, 48000, 1, ".zqx", 10},
                          {3, 24000, 2, ".zqx", 10}, {4, 22050, 1, ".zq", 0},  {5, 22050, 2, ".zq", 0}};
    std::ofstream(Path("cover.png"), std::ios::binary)
        .write(reinterpret_cast<const char*>(kOnePixelPng.data()), std::streamsize(kOnePixelPng.size()));
    for (const Case& c : cases) {
        SCOPED_TRACE("type " + std::to_string(c.type) + " at " + std::to_string(c.rate));
        // Inputs already at the type's format, so the only change is the codec's.
        const auto a = Signal(c.rate, c.channels, 1.5, 1);
        const auto b = Signal(c.rate, c.channels, 1.0, 2);
        const std::string out = Path("out" + std::to_string(c.type) + c.ext);
        std::string log;
        ASSERT_EQ(Run("--type " + std::to_string(c.type) + " --rate " + std::to_string(c.rate) +
                          " --title 'Round Trip' --author 'A. Writer' --id rt" + std::to_string(c.type) +
                          " --section-title One " + WriteWav("a.wav", c.rate, c.channels, a) + " " +
                          WriteWav("b.wav", c.rate, c.channels, b) + " --picture " + Path("cover.png") +
                          "@500 -o " + out,
                      &log),
                  0)
            << log;

        CTalvoMetadata meta;
        ASSERT_EQ(meta.OpenZQXFile(Wide(out)), ZQX_OK);
        EXPECT_EQ(meta.GetFileType(), c.type);
        EXPECT_EQ(meta.GetProgramId(), "rt" + std::to_string(c.type));
        EXPECT_EQ(meta.GetTitle(), u"Round Trip");
        EXPECT_EQ(meta.GetAuthor(), u"A. Writer");
        EXPECT_EQ(meta.GetSampleRate(), c.rate);
        EXPECT_EQ(meta.GetChannels(), c.channels);
        ASSERT_EQ(meta.GetSectionCount(), 2);
        EXPECT_EQ(meta.GetSectionTitle(0), u"One");
        EXPECT_EQ(meta.GetSectionTitle(1), u"b");
        EXPECT_EQ(meta.GetSectionStart(1), 1500u);
        ASSERT_EQ(meta.GetPictureCount(), 1);
        EXPECT_EQ(meta.GetPictureStartTime(0), 500u);
        EXPECT_EQ(meta.GetPictureBytes(0), kOnePixelPng);
        EXPECT_NEAR(double(meta.GetLengthMs()), 2500.0, c.type == 4 ? 80 : 2);

        std::vector<std::int16_t> joined = a;
        joined.insert(joined.end(), b.begin(), b.end());
        if (c.type == 4) {
            // The player takes 104-byte frames and decodes them with libmpg123.
            ZQXHANDLE h = 0;
            ASSERT_EQ(ZQXOpenFileWinW(&h, Wide(out).c_str()), ZQX_OK);
            mpg123_handle* mh = mpg123_new(nullptr, nullptr);
            mpg123_param(mh, MPG123_FLAGS, MPG123_QUIET, 0);
            mpg123_format_none(mh);
            mpg123_format(mh, 22050, MPG123_MONO, MPG123_ENC_SIGNED_16);
            mpg123_open_feed(mh);
            std::uint8_t frame[ZQX_MP3_FRAME_BYTES];
            std::uint32_t len = 0;
            std::size_t frames = 0, decoded = 0;
            int status = ZQX_OK;
            while ((status = ZQXGetEncodedAudio(h, frame, sizeof frame, &len)) == ZQX_OK ||
                   status == ZQX_ERR_LAST_FRAME) {
                ASSERT_EQ(len, ZQX_MP3_FRAME_BYTES);
                ++frames;
                unsigned char pcm[4608];
                size_t done = 0;
                mpg123_decode(mh, frame, len, pcm, sizeof pcm, &done);
                decoded += done / 2;
                if (status == ZQX_ERR_LAST_FRAME)
                    break;
            }
            EXPECT_EQ(status, ZQX_ERR_LAST_FRAME);
            mpg123_delete(mh);
            ZQXCloseFile(h);
            EXPECT_GE(frames * 576, joined.size());
            EXPECT_GE(decoded, joined.size());
            continue;
        }
        const auto pcm = DecodeThroughSdk(out);
        ASSERT_EQ(pcm.size(), joined.size());
        if (c.minSnr == 0)
            EXPECT_TRUE(pcm == joined);
        else
            EXPECT_GT(Snr(joined, pcm), c.minSnr);
    }
}

TEST_F(Zqxpack, SpansCutTheProgramIntoPartsAndResampleTheInput)
{
    // Three sections of 2 s at 44.1 kHz stereo, packed as 8 kHz mono in two parts.
    std::string inputs;
    for (int i = 0; i < 3; ++i)
        inputs += " " + WriteWav("s" + std::to_string(i) + ".wav", 44100, 2, Signal(44100, 2, 2.0, i));
    ASSERT_EQ(Run("-q --type 1 --span 0:3000 -o " + Path("p1.zq") + inputs), 0);
    // The second part names its inputs through a section list, relative to the list's folder.
    std::ofstream(Path("list.txt")) << "# sections\ns0.wav\ns1.wav\tThe Middle\n\ns2.wav\n";
    ASSERT_EQ(Run("-q --type 1 --span 3000:6000 -o " + Path("p2.zq") + " --sections " + Path("list.txt")), 0);

    CTalvoMetadata part1, part2;
    ASSERT_EQ(part1.OpenZQXFile(Wide(Path("p1.zq"))), ZQX_OK);
    ASSERT_EQ(part2.OpenZQXFile(Wide(Path("p2.zq"))), ZQX_OK);
    EXPECT_TRUE(part2.GetTimeSpanFlag());
    EXPECT_EQ(part2.GetTimeSpanStart(), 3000u);
    EXPECT_EQ(part2.GetTimeSpanEnd(), 6000u);
    EXPECT_NEAR(double(part1.GetLengthMs()), 3000, 2);
    EXPECT_NEAR(double(part2.GetLengthMs()), 3000, 2);
    EXPECT_EQ(part1.GetSampleRate(), 8000u);
    // The first file holds s0 at 0 and s1 at 2 s; the second continues s1 at 0 and has s2 at 1 s.
    ASSERT_EQ(part1.GetSectionCount(), 2);
    EXPECT_EQ(part1.GetSectionStart(1), 2000u);
    ASSERT_EQ(part2.GetSectionCount(), 2);
    EXPECT_EQ(part2.GetSectionTitle(0), u"The Middle");
    EXPECT_EQ(part2.GetSectionStart(0), 0u);
    EXPECT_EQ(part2.GetSectionTitle(1), u"s2");
    EXPECT_EQ(part2.GetSectionStart(1), 1000u);
}

TEST_F(Zqxpack, BadInputIsRefusedClearlyAndLeavesNoFile)
{
    const std::string wav = WriteWav("ok.wav", 8000, 1, Signal(8000, 1, 0.5, 1));
    std::ofstream(Path("text.wav")) << "not audio at all";
    std::ofstream(Path("text.png")) << "not a picture";
    const std::string same = Path("same.zq");
    fs::copy_file(wav, same);
    const std::string out = Path("out.zq");
    struct Case {
        std::string args;
        int status;
        const char* message;
    };
    const Case cases[] = {
        {"--type 1 -o " + out + " " + Path("missing.wav"), 1, "does not exist"},
        {"--type 1 -o " + out + " " + Path("text.wav"), 1, "cannot read audio file"},
        {"--type 1 -o " + out + " " + wav + " --picture " + Path("text.png"), 1, "neither JPEG nor PNG"},
        {"--type 9 -o " + out + " " + wav, 2, "unsupported file type 9"},
        {"--type 1 --rate 16000 -o " + out + " " + wav, 1, "always 8000 Hz"},
        {"--type 1 --bogus -o " + out + " " + wav, 2, "unknown option --bogus"},
        {"--type 1 --span 5:2 -o " + out + " " + wav, 2, "--span takes START:END"},
        {"--type 1 --span 9000:9500 -o " + out + " " + wav, 1, "holds no audio"},
        // Without -o the output goes beside the input, but never over it.
        {"--type 1 " + same, 2, "would replace the input"},
        {"--type 1 -o " + Path("no/such/folder.zq") + " " + wav, 1, "does not exist"},
    };
    for (const Case& c : cases) {
        std::string log;
        EXPECT_EQ(Run(c.args, &log), c.status) << c.args;
        EXPECT_NE(log.find(c.message), std::string::npos) << log;
        EXPECT_FALSE(fs::exists(out)) << c.args;
    }
    EXPECT_EQ(fs::file_size(same), fs::file_size(wav));
}
