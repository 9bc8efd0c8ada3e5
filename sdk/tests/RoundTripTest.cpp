// Write a program, read it back through the C API: every SDK-decoded type
// decodes to what was written (exactly for PCM, within SNR for the codecs), the
// player's refill loop loses nothing but the final partial buffer, and type-4
// frames come back byte for byte with the -24 / -19 ending.

#include "SdkTestSupport.h"

#include "codec/ImaAdpcm.h"
#include "zqx/TalvoMetadata.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace zqxtest;

namespace {

// The player's buffer: five decode units (half a second of audio, or
// channels x 2048 bytes for Opus).
uint32_t PlayerBufferBytes(int32_t type, uint32_t rate, uint32_t channels)
{
    const uint32_t unit = type == ZQX_TYPE_OPUS ? channels * 2048 : (channels * rate * 2) >> 1;
    return 5 * unit;
}

struct Decoded {
    std::vector<int16_t> straight;
    std::vector<int16_t> player;
};

Decoded DecodeBothWays(const std::string& path, int32_t type, uint32_t rate, uint32_t channels)
{
    Decoded d;
    ZQXHANDLE h = OpenOrFail(path);
    d.straight = DecodeAll(h);
    EXPECT_EQ(ZQXSeek(h, 0), ZQX_OK);
    d.player = PlayLikePlayer(h, PlayerBufferBytes(type, rate, channels));
    EXPECT_EQ(ZQXCloseFile(h), ZQX_OK);
    return d;
}

// The player may drop only its last, partially filled buffer.
void ExpectPlayerLosesOnlyTheTail(const Decoded& d, int32_t type, uint32_t rate, uint32_t channels)
{
    ASSERT_LE(d.player.size(), d.straight.size());
    EXPECT_TRUE(std::equal(d.player.begin(), d.player.end(), d.straight.begin()));
    EXPECT_LT(d.straight.size() - d.player.size(), PlayerBufferBytes(type, rate, channels) / 2);
}

} // namespace

TEST(RoundTrip, Pcm16MonoAndStereoAreExact)
{
    for (uint32_t channels : {1u, 2u}) {
        ScratchFolder dir;
        const std::string path = dir.File("pcm.zq");
        const auto pcm = TestSignal(44100 * 3 + 17, 44100, channels);
        CZQXWriter w;
        ASSERT_EQ(w.Create(path, ZQX_TYPE_PCM16, 44100, channels), ZQX_OK);
        ASSERT_EQ(w.AddPcm16(pcm.data(), pcm.size() / channels), ZQX_OK);
        ASSERT_EQ(w.Finish(), ZQX_OK);
        const Decoded d = DecodeBothWays(path, ZQX_TYPE_PCM16, 44100, channels);
        EXPECT_EQ(d.straight, pcm) << channels;
        ExpectPlayerLosesOnlyTheTail(d, ZQX_TYPE_PCM16, 44100, channels);
    }
}

TEST(RoundTrip, ImaAdpcmBothRatesDecodeCloseToTheInput)
{
    for (const auto& [type, rate] :
         {std::pair{ZQX_TYPE_ADPCM_8K, 8000u}, std::pair{ZQX_TYPE_ADPCM_16K, 16000u}}) {
        ScratchFolder dir;
        const std::string path = dir.File("ima.zq");
        const auto pcm = TestSignal(rate * 4 + 5, rate, 1);
        ProgramShape choice;
        choice.fileType = type;
        choice.sampleRate = rate;
        WriteProgram(path, choice, EncodeImaBlocks(pcm, 1024));
        const Decoded d = DecodeBothWays(path, type, rate, 1);
        ASSERT_EQ(d.straight.size(), pcm.size());
        EXPECT_GT(SnrDb(pcm, d.straight), 20.0) << type;
        ExpectPlayerLosesOnlyTheTail(d, type, rate, 1);
    }
}

TEST(RoundTrip, OpusIsAlignedWithItsInput)
{
    for (uint32_t channels : {1u, 2u}) {
        ScratchFolder dir;
        const std::string path = dir.File("opus.zqx");
        const auto pcm = TestSignal(48000 * 2 + 100, 48000, channels);
        ProgramShape choice;
        choice.fileType = ZQX_TYPE_OPUS;
        choice.sampleRate = 48000;
        choice.channels = channels;
        const auto packets = EncodeOpus(pcm, 48000, channels, 960, choice.preSkip);
        WriteProgram(path, choice, packets);
        const Decoded d = DecodeBothWays(path, ZQX_TYPE_OPUS, 48000, channels);
        // Same length as the input and no shift: a misapplied pre-skip would
        // cost the SNR all of its margin on these tones.
        ASSERT_EQ(d.straight.size(), pcm.size());
        EXPECT_GT(SnrDb(pcm, d.straight), 12.0) << channels;
        // Only the first packet carries the pre-skip, so look at it alone too.
        const std::vector<int16_t> head(pcm.begin(), pcm.begin() + 600 * channels);
        EXPECT_GT(SnrDb(head, d.straight), 6.0) << channels;
        ExpectPlayerLosesOnlyTheTail(d, ZQX_TYPE_OPUS, 48000, channels);
    }
}

TEST(RoundTrip, Mp3FramesComeBackExactlyWithTheLastFrameFlagged)
{
    ScratchFolder dir;
    const std::string path = dir.File("frames.zq");
    std::vector<Packet> frames(7);
    for (size_t i = 0; i < frames.size(); ++i) {
        frames[i].bytes.assign(ZQX_MP3_FRAME_BYTES, uint8_t(i));
        frames[i].bytes[0] = 0xFF;
        frames[i].bytes[1] = 0xF3;
        frames[i].samples = 576;
    }
    ProgramShape choice;
    choice.fileType = ZQX_TYPE_MP3;
    choice.sampleRate = 22050;
    WriteProgram(path, choice, frames);

    ZQXHANDLE h = OpenOrFail(path);
    std::vector<uint8_t> frame(ZQX_MP3_FRAME_BYTES);
    uint32_t length = 0;
    for (size_t i = 0; i < frames.size(); ++i) {
        const int rc = ZQXGetEncodedAudio(h, frame.data(), ZQX_MP3_FRAME_BYTES, &length);
        EXPECT_EQ(rc, i + 1 == frames.size() ? ZQX_ERR_LAST_FRAME : ZQX_OK) << i;
        EXPECT_EQ(length, ZQX_MP3_FRAME_BYTES);
        EXPECT_EQ(frame, frames[i].bytes);
    }
    EXPECT_EQ(ZQXGetEncodedAudio(h, frame.data(), ZQX_MP3_FRAME_BYTES, &length), ZQX_ERR_END_OF_AUDIO);
    uint32_t produced = 7;
    std::vector<uint8_t> pcm(1152);
    EXPECT_EQ(ZQXDecodePCMFrame(h, frame.data(), 104, pcm.data(), 1152, &produced), ZQX_ERR_NOT_DECODABLE);
    EXPECT_EQ(produced, 0u);
    // Frame k starts at k * 576 samples of 22050 Hz.
    ASSERT_EQ(ZQXSeek(h, 100), ZQX_OK);
    uint32_t ms = 0;
    ASSERT_EQ(ZQXGetPlaybackPosition(h, &ms), ZQX_OK);
    EXPECT_EQ(ms, 3 * 576 * 1000 / 22050);
    ZQXCloseFile(h);
}

TEST(RoundTrip, MetadataSectionsAndPicturesSurvive)
{
    ScratchFolder dir;
    // A name beyond ASCII after an ASCII run, as paths on a device often are.
    const std::string path = dir.File("meta H\xC3\xB6rbuch \xE4\xB8\xAD.zq");
    const std::u16string widePath = Wide(dir.File("")) + u"meta H\u00F6rbuch \u4E2D.zq";
    const std::vector<uint8_t> jpeg = {0xFF, 0xD8, 0xFF, 0xE0, 1, 2, 3};
    const std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A, 9};
    {
        CZQXWriter w;
        ASSERT_EQ(w.Create(path, ZQX_TYPE_PCM16, 8000, 1), ZQX_OK);
        ASSERT_EQ(w.SetProgramId("ID-7"), ZQX_OK);
        ASSERT_EQ(w.SetTitle("\xE4\xB8\xAD\xE6\x96\x87"), ZQX_OK); // two CJK characters
        ASSERT_EQ(w.SetNarrator("N"), ZQX_OK);
        ASSERT_EQ(w.SetTimeOffset(1234), ZQX_OK);
        ASSERT_EQ(w.SetTimeSpan(true, 60000, 90000), ZQX_OK);
        ASSERT_EQ(w.AddSection(2000, "Two"), ZQX_OK);
        ASSERT_EQ(w.AddSection(0, "One"), ZQX_OK);
        ASSERT_EQ(w.AddPicture(0, 1, jpeg), ZQX_OK);
        ASSERT_EQ(w.AddPicture(1500, 2, png), ZQX_OK);
        EXPECT_EQ(w.AddPicture(0, 1, png), ZQX_ERR_BAD_ARGUMENT); // PNG bytes labelled JPEG
        EXPECT_EQ(w.SetAuthor("\xC3\x28"), ZQX_ERR_BAD_ARGUMENT); // invalid UTF-8
        const auto pcm = TestSignal(8000 * 3, 8000, 1);
        ASSERT_EQ(w.AddPcm16(pcm.data(), pcm.size()), ZQX_OK);
        ASSERT_EQ(w.Finish(), ZQX_OK);
    }
    CTalvoMetadata m;
    ASSERT_EQ(m.OpenZQXFile(widePath), ZQX_OK);
    const CTalvoMetadata copy = m;
    m.CloseZQXFile();
    EXPECT_FALSE(m.IsOpen());
    EXPECT_EQ(copy.GetProgramId(), "ID-7");
    EXPECT_EQ(copy.GetTitle(), u"\u4E2D\u6587");
    EXPECT_EQ(copy.GetNarrator(), u"N");
    EXPECT_EQ(copy.GetFileType(), ZQX_TYPE_PCM16);
    EXPECT_EQ(copy.GetLengthMs(), 3000u);
    EXPECT_EQ(copy.GetTimeOffsetMs(), 1234u);
    EXPECT_TRUE(copy.GetTimeSpanFlag());
    EXPECT_EQ(copy.GetTimeSpanStart(), 60000u);
    EXPECT_EQ(copy.GetTimeSpanEnd(), 90000u);
    ASSERT_EQ(copy.GetSectionCount(), 2);
    EXPECT_EQ(copy.GetSectionTitle(0), u"One");
    EXPECT_EQ(copy.GetSectionStart(1), 2000u);
    EXPECT_EQ(copy.GetCoverPicture(), jpeg);
    EXPECT_EQ(copy.GetPictureStartTime(1), 1500u);

    ZQXHANDLE h = 0;
    ASSERT_EQ(ZQXOpenFileWinW(&h, widePath.c_str()), ZQX_OK);
    uint32_t size = 0;
    ASSERT_EQ(ZQXGetEncodedImage(h, 1, nullptr, 0, &size), ZQX_OK);
    EXPECT_EQ(size, png.size());
    std::vector<uint8_t> got(size);
    EXPECT_EQ(ZQXGetEncodedImage(h, 1, got.data(), size - 1, &size), ZQX_ERR_BUFFER_TOO_SMALL);
    ASSERT_EQ(ZQXGetEncodedImage(h, 1, got.data(), size, &size), ZQX_OK);
    EXPECT_EQ(got, png);
    EXPECT_EQ(ZQXGetEncodedImage(h, 2, nullptr, 0, &size), ZQX_ERR_OUT_OF_RANGE);
    ZQXCloseFile(h);
}

// Pictures larger than the pieces the picture chunk is checked in come back
// whole through both readers, and are read from the file each time: a picture
// damaged after the open is refused, not served from memory.
TEST(RoundTrip, LargePicturesAreReadFromTheFileWhenAskedFor)
{
    ScratchFolder dir;
    const std::string path = dir.File("covers.zq");
    std::vector<uint8_t> jpeg = {0xFF, 0xD8, 0xFF, 0xE0};
    std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    for (uint32_t i = 0; i < 150000; ++i) {
        jpeg.push_back(uint8_t(i * 7 + i / 256));
        png.push_back(uint8_t(i * 13 + i / 512));
    }
    {
        CZQXWriter w;
        ASSERT_EQ(w.Create(path, ZQX_TYPE_PCM16, 8000, 1), ZQX_OK);
        ASSERT_EQ(w.AddPicture(0, 1, jpeg), ZQX_OK);
        ASSERT_EQ(w.AddPicture(500, 2, png), ZQX_OK);
        const auto pcm = TestSignal(8000, 8000, 1);
        ASSERT_EQ(w.AddPcm16(pcm.data(), pcm.size()), ZQX_OK);
        ASSERT_EQ(w.Finish(), ZQX_OK);
    }
    CTalvoMetadata m;
    ASSERT_EQ(m.OpenZQXFile(Wide(path)), ZQX_OK);
    ASSERT_EQ(m.GetPictureCount(), 2);
    EXPECT_EQ(m.GetPictures()[1].byteLength, png.size());
    EXPECT_EQ(m.GetCoverPicture(), jpeg);
    EXPECT_EQ(m.GetPictureBytes(1), png);
    ZQXHANDLE h = OpenOrFail(path);
    std::vector<uint8_t> got(png.size());
    uint32_t size = 0;
    ASSERT_EQ(ZQXGetEncodedImage(h, 1, got.data(), uint32_t(got.size()), &size), ZQX_OK);
    EXPECT_EQ(got, png);

    // One byte of the second picture changes on disk; the chunk's checksum no
    // longer holds, whichever picture is asked for.
    std::vector<uint8_t> bytes = ReadBytes(path);
    const auto at = std::search(bytes.begin(), bytes.end(), png.begin(), png.end());
    ASSERT_NE(at, bytes.end());
    *(at + std::ptrdiff_t(png.size()) - 1) ^= 1;
    WriteBytes(path, bytes);
    std::vector<uint8_t> kept = {1, 2, 3};
    EXPECT_EQ(m.ReadPictureBytes(0, kept), ZQX_ERR_DAMAGED);
    EXPECT_EQ(kept, (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_TRUE(m.GetCoverPicture().empty());
    std::vector<uint8_t> untouched(jpeg.size(), 0x5A);
    EXPECT_EQ(ZQXGetEncodedImage(h, 0, untouched.data(), uint32_t(untouched.size()), &size), ZQX_ERR_DAMAGED);
    EXPECT_TRUE(std::all_of(untouched.begin(), untouched.end(), [](uint8_t b) { return b == 0x5A; }));
    ZQXCloseFile(h);
}

TEST(RoundTrip, DecodeNeverWritesPastRoom)
{
    ScratchFolder dir;
    const std::string path = dir.File("room.zq");
    ProgramShape choice;
    choice.fileType = ZQX_TYPE_ADPCM_8K;
    WriteProgram(path, choice, EncodeImaBlocks(TestSignal(8000, 8000, 1), 256));
    ZQXHANDLE h = OpenOrFail(path);
    std::vector<uint8_t> block(ZQX_MAX_BLOCK_BYTES);
    uint32_t length = 0;
    ASSERT_EQ(ZQXGetEncodedAudio(h, block.data(), 10, &length), ZQX_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 256u);
    ASSERT_EQ(ZQXGetEncodedAudio(h, block.data(), ZQX_MAX_BLOCK_BYTES, &length), ZQX_OK);
    const uint32_t needed = uint32_t(zqx::ImaMaxSamples(256)) * 2;
    std::vector<uint8_t> pcm(needed + 8, 0xAB);
    uint32_t produced = 99;
    EXPECT_EQ(ZQXDecodePCMFrame(h, block.data(), length, pcm.data(), needed - 1, &produced),
              ZQX_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(produced, 0u);
    EXPECT_TRUE(std::all_of(pcm.begin(), pcm.end(), [](uint8_t b) { return b == 0xAB; }));
    ASSERT_EQ(ZQXDecodePCMFrame(h, block.data(), length, pcm.data(), needed, &produced), ZQX_OK);
    EXPECT_EQ(produced, needed);
    EXPECT_EQ(pcm[needed], 0xAB);
    ZQXCloseFile(h);
}

TEST(RoundTrip, OpusAfterASeekDecodesLikeStraightThrough)
{
    ScratchFolder dir;
    const std::string path = dir.File("seek.zqx");
    const auto pcm = TestSignal(48000 * 2, 48000, 1);
    ProgramShape choice;
    choice.fileType = ZQX_TYPE_OPUS;
    choice.sampleRate = 48000;
    const auto packets = EncodeOpus(pcm, 48000, 1, 960, choice.preSkip);
    WriteProgram(path, choice, packets);
    ZQXHANDLE h = OpenOrFail(path);
    const auto straight = DecodeAll(h);
    // 1000 ms lies in packet 50 (20 ms packets); what follows must match the straight
    // decode closely, which needs the decoder's history rebuilt before it.
    ASSERT_EQ(ZQXSeek(h, 1000), ZQX_OK);
    uint32_t ms = 0;
    ASSERT_EQ(ZQXGetPlaybackPosition(h, &ms), ZQX_OK);
    EXPECT_LE(ms, 1000u);
    EXPECT_GT(ms, 1000u - 20);
    const auto afterSeek = DecodeAll(h);
    const size_t offset = straight.size() - afterSeek.size();
    const std::vector<int16_t> reference(straight.begin() + std::ptrdiff_t(offset),
                                         straight.begin() + std::ptrdiff_t(offset + 960));
    EXPECT_GT(SnrDb(reference, afterSeek), 15.0); // about 25 dB with the history, 6 dB without
    ZQXCloseFile(h);
}
