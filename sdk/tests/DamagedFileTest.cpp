// Damaged files: every truncation, every flipped byte and every forged length
// is answered with a status - at open, or at the latest when the damaged audio
// is read - and never with a crash or with wrong audio.  The metadata reader
// refuses a subset: what it does not read (the index, the picture bytes) is
// refused by the open for playback, and a damaged picture by the picture read.

#include "SdkTestSupport.h"

#include "Crc32.h"
#include "zqx/TalvoMetadata.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace zqxtest;

namespace {

struct Chunk {
    size_t headerOffset = 0;
    size_t payloadOffset = 0;
    uint64_t payloadBytes = 0;
};

uint32_t Le32(const std::vector<uint8_t>& b, size_t at)
{
    return uint32_t(b[at]) | uint32_t(b[at + 1]) << 8 | uint32_t(b[at + 2]) << 16 | uint32_t(b[at + 3]) << 24;
}

void PutLe32(std::vector<uint8_t>& b, size_t at, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        b[at + size_t(i)] = uint8_t(v >> (8 * i));
}

std::vector<Chunk> Chunks(const std::vector<uint8_t>& file)
{
    std::vector<Chunk> chunks;
    for (size_t at = 64; at + 16 <= file.size();) {
        Chunk c;
        c.headerOffset = at;
        c.payloadOffset = at + 16;
        c.payloadBytes = uint64_t(Le32(file, at + 8)) | uint64_t(Le32(file, at + 12)) << 32;
        chunks.push_back(c);
        at = c.payloadOffset + size_t(c.payloadBytes);
    }
    return chunks;
}

// Rewrites a chunk's CRC after a deliberate edit, so only the structural checks can catch it.
void ResealChunk(std::vector<uint8_t>& file, const Chunk& c)
{
    PutLe32(file, c.headerOffset + 4, zqx::Crc32(0, file.data() + c.payloadOffset, size_t(c.payloadBytes)));
}

class DamagedFile : public ::testing::Test {
protected:
    void SetUp() override
    {
        path = dir.File("good.zq");
        const std::vector<uint8_t> jpeg = {0xFF, 0xD8, 0xFF, 0xE0, 0, 0x10};
        CZQXWriter w;
        ASSERT_EQ(w.Create(path, ZQX_TYPE_ADPCM_8K, 8000, 1), ZQX_OK);
        ASSERT_EQ(w.SetTitle("T"), ZQX_OK);
        ASSERT_EQ(w.AddSection(0, "S1"), ZQX_OK);
        ASSERT_EQ(w.AddSection(300, "S2"), ZQX_OK);
        ASSERT_EQ(w.AddPicture(0, 1, jpeg), ZQX_OK);
        for (const Packet& p : EncodeImaBlocks(TestSignal(4000, 8000, 1), 200))
            ASSERT_EQ(w.AddPacket(p.bytes.data(), uint32_t(p.bytes.size()), p.samples), ZQX_OK);
        ASSERT_EQ(w.Finish(), ZQX_OK);
        good = ReadBytes(path);
        ASSERT_EQ(Chunks(good).size(), 5u);
    }

    // Status of opening bytes as a program for playback.  The metadata reader's
    // own status is left in metadataRc, and when it accepted the bytes, its read
    // of the cover in coverRc.
    int Open(const std::vector<uint8_t>& bytes, ZQXHANDLE* keep = nullptr)
    {
        const std::string damaged = dir.File("damaged.zq");
        WriteBytes(damaged, bytes);
        ZQXHANDLE h = 0;
        const std::u16string wide = Wide(damaged);
        const int rc = ZQXOpenFileWinW(&h, wide.c_str());
        CTalvoMetadata m;
        metadataRc = m.OpenZQXFile(wide);
        std::vector<uint8_t> cover;
        coverRc = metadataRc == ZQX_OK ? m.ReadPictureBytes(0, cover) : metadataRc;
        if (metadataRc != ZQX_OK) {
            EXPECT_EQ(metadataRc, rc); // it refuses nothing the open accepts
        }
        if (keep)
            *keep = h;
        else if (rc == ZQX_OK)
            ZQXCloseFile(h);
        return rc;
    }

    // Whether offset lies in a chunk's checksum field or its payload.
    static bool InChecksummedPart(const Chunk& c, size_t offset)
    {
        return (offset >= c.headerOffset + 4 && offset < c.headerOffset + 8) ||
               (offset >= c.payloadOffset && offset < c.payloadOffset + c.payloadBytes);
    }

    int metadataRc = ZQX_OK;
    int coverRc = ZQX_OK;

    ScratchFolder dir;
    std::string path;
    std::vector<uint8_t> good;
};

} // namespace

TEST_F(DamagedFile, EveryTruncationIsDamaged)
{
    // The metadata reader locates every chunk, so a cut file never reaches a list either.
    for (size_t size = 0; size < good.size(); ++size) {
        std::vector<uint8_t> cut(good.begin(), good.begin() + std::ptrdiff_t(size));
        ASSERT_EQ(Open(cut), ZQX_ERR_DAMAGED) << size;
        ASSERT_EQ(metadataRc, ZQX_ERR_DAMAGED) << size;
    }
    std::vector<uint8_t> longer = good;
    longer.push_back(0);
    EXPECT_EQ(Open(longer), ZQX_ERR_DAMAGED);
    EXPECT_EQ(metadataRc, ZQX_ERR_DAMAGED);
}

TEST_F(DamagedFile, EveryFlippedByteIsCaughtAtOpenOrWhenItsAudioIsRead)
{
    const auto chunks = Chunks(good);
    const Chunk pictures = chunks[2];
    const Chunk index = chunks[3];
    const Chunk audio = chunks[4];
    for (size_t at = 0; at < good.size(); ++at) {
        for (uint8_t mask : {uint8_t(0x01), uint8_t(0x80)}) {
            std::vector<uint8_t> bad = good;
            bad[at] ^= mask;
            ZQXHANDLE h = 0;
            const int rc = Open(bad, &h);
            if (rc != ZQX_OK) {
                // The version field may read as newer; everything else is damage.
                EXPECT_TRUE(rc == ZQX_ERR_DAMAGED || (rc == ZQX_ERR_NEWER_VERSION && (at == 8 || at == 9)))
                    << at;
                // What the metadata reader lets through lies in the index or the
                // picture chunk, and a damaged picture chunk fails the picture read.
                if (metadataRc == ZQX_OK) {
                    EXPECT_TRUE(InChecksummedPart(index, at) || InChecksummedPart(pictures, at)) << at;
                    if (InChecksummedPart(pictures, at)) {
                        EXPECT_EQ(coverRc, ZQX_ERR_DAMAGED) << at;
                    }
                }
                continue;
            }
            EXPECT_EQ(metadataRc, ZQX_OK) << at;
            EXPECT_EQ(coverRc, ZQX_OK) << at;
            // Only audio bytes and the audio chunk's own checksum escape the open.
            EXPECT_TRUE(at >= audio.payloadOffset ||
                        (at >= audio.headerOffset + 4 && at < audio.headerOffset + 8))
                << at;
            EXPECT_EQ(ZQXVerifyAudio(h), ZQX_ERR_DAMAGED) << at;
            if (at >= audio.payloadOffset) {
                std::vector<uint8_t> block(ZQX_MAX_BLOCK_BYTES);
                uint32_t length = 0;
                int read = ZQX_OK;
                while ((read = ZQXGetEncodedAudio(h, block.data(), ZQX_MAX_BLOCK_BYTES, &length)) == ZQX_OK) {
                }
                EXPECT_EQ(read, ZQX_ERR_DAMAGED) << at;
            }
            ZQXCloseFile(h);
        }
    }
}

TEST_F(DamagedFile, NewerFormatVersionHasItsOwnStatus)
{
    std::vector<uint8_t> newer = good;
    newer[8] = 2;
    EXPECT_EQ(Open(newer), ZQX_ERR_NEWER_VERSION);
}

TEST_F(DamagedFile, ForgedLengthsAndCountsAreRefusedEvenWithValidChecksums)
{
    const auto chunks = Chunks(good);
    // A chunk claiming more bytes than the file has (and one wrapping around 64 bits).
    for (uint32_t high : {0u, 0xFFFFFFFFu}) {
        std::vector<uint8_t> bad = good;
        PutLe32(bad, chunks[1].headerOffset + 8, 0xFFFFFFF0u);
        PutLe32(bad, chunks[1].headerOffset + 12, high);
        EXPECT_EQ(Open(bad), ZQX_ERR_DAMAGED) << high;
    }
    // Section count far beyond the payload.
    {
        std::vector<uint8_t> bad = good;
        PutLe32(bad, chunks[1].payloadOffset, 0xFFFFFFFFu);
        ResealChunk(bad, chunks[1]);
        EXPECT_EQ(Open(bad), ZQX_ERR_DAMAGED);
    }
    // A metadata string longer than its chunk (the title's length field).
    {
        std::vector<uint8_t> bad = good;
        PutLe32(bad, chunks[0].payloadOffset + 16 + 4, 0x7FFFFFFFu);
        ResealChunk(bad, chunks[0]);
        EXPECT_EQ(Open(bad), ZQX_ERR_DAMAGED);
    }
    // Picture count and picture length: the table is what the metadata reader walks.
    for (size_t field : {size_t(0), size_t(12)}) {
        std::vector<uint8_t> bad = good;
        PutLe32(bad, chunks[2].payloadOffset + field, 0xFFFFFFF0u);
        ResealChunk(bad, chunks[2]);
        EXPECT_EQ(Open(bad), ZQX_ERR_DAMAGED) << field;
        EXPECT_EQ(metadataRc, ZQX_ERR_DAMAGED) << field;
    }
    // Index: a packet count that disagrees with the entries, and a packet
    // claiming bytes that run into the next one.  The metadata reader does not
    // read the index, so such a file is listed and refused when it is opened to play.
    {
        std::vector<uint8_t> bad = good;
        PutLe32(bad, chunks[3].payloadOffset, 1000000u);
        ResealChunk(bad, chunks[3]);
        EXPECT_EQ(Open(bad), ZQX_ERR_DAMAGED);
        EXPECT_EQ(metadataRc, ZQX_OK);
    }
    {
        std::vector<uint8_t> bad = good;
        bad[chunks[3].payloadOffset + 4] += 2; // first packet's byte count
        ResealChunk(bad, chunks[3]);
        EXPECT_EQ(Open(bad), ZQX_ERR_DAMAGED);
        EXPECT_EQ(metadataRc, ZQX_OK);
    }
    // Sections out of order.
    {
        std::vector<uint8_t> bad = good;
        PutLe32(bad, chunks[1].payloadOffset + 4, 400); // first section's start, after the second's 300
        ResealChunk(bad, chunks[1]);
        EXPECT_EQ(Open(bad), ZQX_ERR_DAMAGED);
    }
}

TEST_F(DamagedFile, NotAProgramFileAtAll)
{
    EXPECT_EQ(Open({}), ZQX_ERR_DAMAGED);
    std::vector<uint8_t> text(500, 'a');
    EXPECT_EQ(Open(text), ZQX_ERR_DAMAGED);
    const std::u16string folder = Wide(path.substr(0, path.find_last_of('/')));
    ZQXHANDLE h = 0;
    EXPECT_EQ(ZQXOpenFileWinW(&h, folder.c_str()), ZQX_ERR_IO);
}
