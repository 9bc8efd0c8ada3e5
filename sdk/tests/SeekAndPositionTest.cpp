// Positions: seeks land on the packet holding the target, sections are found
// right at their boundaries, the end is handled without a crash, and the ".pos"
// side file brings a position back across a close.

#include "SdkTestSupport.h"
#include "zqx/TalvoMetadata.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace zqxtest;

namespace {

// 8 kHz PCM in 4096-byte packets: 2048 samples = 256 ms per packet, 10 s in all.
constexpr uint32_t kPacketMs = 256;

std::string WriteTenSeconds(const ScratchFolder& dir, const std::string& name,
                            std::vector<std::pair<uint32_t, std::string>> sections)
{
    const std::string path = dir.File(name);
    CZQXWriter w;
    EXPECT_EQ(w.Create(path, ZQX_TYPE_PCM16, 8000, 1), ZQX_OK);
    for (const auto& [start, title] : sections)
        EXPECT_EQ(w.AddSection(start, title), ZQX_OK);
    const auto pcm = TestSignal(80000, 8000, 1);
    EXPECT_EQ(w.AddPcm16(pcm.data(), pcm.size()), ZQX_OK);
    EXPECT_EQ(w.Finish(), ZQX_OK);
    return path;
}

uint32_t Position(ZQXHANDLE h)
{
    uint32_t ms = 0xFFFFFFFF;
    EXPECT_EQ(ZQXGetPlaybackPosition(h, &ms), ZQX_OK);
    return ms;
}

int32_t Chapter(ZQXHANDLE h)
{
    int32_t index = -5;
    EXPECT_EQ(ZQXGetCurrentChapter(h, &index), ZQX_OK);
    return index;
}

} // namespace

TEST(Seek, LandsOnThePacketHoldingTheTarget)
{
    ScratchFolder dir;
    ZQXHANDLE h = OpenOrFail(WriteTenSeconds(dir, "a.zq", {}));
    for (uint32_t target : {0u, 1u, 255u, 256u, 257u, 5000u, 9999u}) {
        ASSERT_EQ(ZQXSeek(h, target), ZQX_OK);
        const uint32_t pos = Position(h);
        EXPECT_LE(pos, target);
        EXPECT_LT(target - pos, kPacketMs) << target;
        EXPECT_EQ(pos % kPacketMs, 0u);
    }
    // Reading advances the position by one packet.
    ASSERT_EQ(ZQXSeek(h, 512), ZQX_OK);
    std::vector<uint8_t> block(ZQX_MAX_BLOCK_BYTES);
    uint32_t length = 0;
    ASSERT_EQ(ZQXGetEncodedAudio(h, block.data(), ZQX_MAX_BLOCK_BYTES, &length), ZQX_OK);
    EXPECT_EQ(Position(h), 768u);
    ZQXCloseFile(h);
}

TEST(Seek, AtOrPastTheEndMovesToTheEnd)
{
    ScratchFolder dir;
    ZQXHANDLE h = OpenOrFail(WriteTenSeconds(dir, "b.zq", {}));
    std::vector<uint8_t> block(ZQX_MAX_BLOCK_BYTES);
    for (uint32_t target : {10000u, 10001u, 0xFFFFFFFFu}) {
        ASSERT_EQ(ZQXSeek(h, target), ZQX_OK);
        EXPECT_EQ(Position(h), 10000u);
        uint32_t length = 5;
        EXPECT_EQ(ZQXGetEncodedAudio(h, block.data(), ZQX_MAX_BLOCK_BYTES, &length), ZQX_ERR_END_OF_AUDIO);
        EXPECT_EQ(length, 0u);
    }
    ZQXCloseFile(h);
}

TEST(Sections, CurrentSectionFollowsThePositionAtBoundaries)
{
    ScratchFolder dir;
    // 2560 ms lies on a packet boundary, 5000 ms inside a packet.
    ZQXHANDLE h = OpenOrFail(WriteTenSeconds(dir, "c.zq", {{0, "A"}, {2560, "B"}, {5000, "C"}}));
    int32_t count = -1;
    ASSERT_EQ(ZQXGetChapterCount(h, &count), ZQX_OK);
    ASSERT_EQ(count, 3);
    ASSERT_EQ(ZQXSeek(h, 2559), ZQX_OK);
    EXPECT_EQ(Chapter(h), 0);
    ASSERT_EQ(ZQXSeek(h, 2560), ZQX_OK);
    EXPECT_EQ(Chapter(h), 1);
    // Seeking to a section counts as being in it even though its packet starts earlier.
    ASSERT_EQ(ZQXSeekToChapter(h, 2), ZQX_OK);
    EXPECT_LE(Position(h), 5000u);
    EXPECT_EQ(Chapter(h), 2);
    ASSERT_EQ(ZQXSeekToChapter(h, 1), ZQX_OK);
    EXPECT_EQ(Position(h), 2560u);
    // The player asks for index == count at the last section; the position stays.
    EXPECT_EQ(ZQXSeekToChapter(h, 3), ZQX_ERR_OUT_OF_RANGE);
    EXPECT_EQ(ZQXSeekToChapter(h, -1), ZQX_ERR_OUT_OF_RANGE);
    EXPECT_EQ(Position(h), 2560u);
    ASSERT_EQ(ZQXSeek(h, 20000), ZQX_OK);
    EXPECT_EQ(Chapter(h), 2);
    ZQXCloseFile(h);
}

TEST(Sections, ProgramWithoutSections)
{
    ScratchFolder dir;
    ZQXHANDLE h = OpenOrFail(WriteTenSeconds(dir, "d.zq", {}));
    int32_t count = -1;
    ASSERT_EQ(ZQXGetChapterCount(h, &count), ZQX_OK);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(Chapter(h), 0);
    EXPECT_EQ(ZQXSeekToChapter(h, 0), ZQX_ERR_OUT_OF_RANGE);
    ZQXCloseFile(h);
}

TEST(PositionFile, SavedPositionComesBackOnOpenUnderTheSideFileName)
{
    ScratchFolder dir;
    for (const std::string name : {"book.zq", "book.zqx"}) {
        const std::string path = WriteTenSeconds(dir, name, {});
        const std::string side = dir.File(name == "book.zq" ? "book.pos" : "book.posx");
        ZQXHANDLE h = OpenOrFail(path);
        EXPECT_EQ(Position(h), 0u);
        ASSERT_EQ(ZQXSeek(h, 3000), ZQX_OK);
        const uint32_t saved = Position(h);
        EXPECT_EQ(ZQXSavePlaybackPosition(h, 1), ZQX_ERR_BAD_ARGUMENT);
        ASSERT_EQ(ZQXSavePlaybackPosition(h, ZQX_SAVE_TO_SIDE_FILE), ZQX_OK);
        ZQXCloseFile(h);
        ASSERT_TRUE(std::filesystem::exists(side)) << side;
        EXPECT_FALSE(std::filesystem::exists(side + ".tmp"));

        h = OpenOrFail(path);
        EXPECT_EQ(Position(h), saved);
        ZQXCloseFile(h);

        // A damaged side file is ignored, not a damaged program.
        auto bytes = ReadBytes(side);
        bytes[9] ^= 0x40;
        WriteBytes(side, bytes);
        h = OpenOrFail(path);
        EXPECT_EQ(Position(h), 0u);
        ZQXCloseFile(h);
    }
}

TEST(PositionFile, NameThatIsNotUtf8OpensAndKeepsItsSideFile)
{
    ScratchFolder dir;
    // "caf\xe9.zq" in Latin-1; the player hands the byte 0xE9 over as U+DCE9.
    WriteTenSeconds(dir, "caf\xe9.zq", {});
    const std::u16string wide = Wide(dir.File("")) + u"caf\xDCE9.zq";
    ZQXHANDLE h = 0;
    ASSERT_EQ(ZQXOpenFileWinW(&h, wide.c_str()), ZQX_OK);
    ASSERT_EQ(ZQXSeek(h, 3000), ZQX_OK);
    ASSERT_EQ(ZQXSavePlaybackPosition(h, ZQX_SAVE_TO_SIDE_FILE), ZQX_OK);
    ZQXCloseFile(h);
    EXPECT_TRUE(std::filesystem::exists(dir.File("caf\xe9.pos")));
    CTalvoMetadata metadata;
    EXPECT_EQ(metadata.OpenZQXFile(wide), ZQX_OK);
    // U+DCE9 is the byte, not the UTF-8 of U+00E9: "caf\u00e9.zq" is no file here.
    EXPECT_EQ(metadata.OpenZQXFile(u"" + Wide(dir.File("")) + u"caf\u00e9.zq"), ZQX_ERR_NO_FILE);
}

TEST(Handles, ClosedAndForeignHandlesAreRefused)
{
    ScratchFolder dir;
    const std::string path = WriteTenSeconds(dir, "e.zq", {});
    ZQXHANDLE h = OpenOrFail(path);
    ASSERT_NE(h, 0u);
    ASSERT_EQ(ZQXCloseFile(h), ZQX_OK);
    int32_t type = 0;
    EXPECT_EQ(ZQXGetFileType(h, &type), ZQX_ERR_BAD_HANDLE);
    EXPECT_EQ(ZQXCloseFile(h), ZQX_ERR_BAD_HANDLE);
    // The slot is reused, but the old handle still names nothing.
    ZQXHANDLE again = OpenOrFail(path);
    EXPECT_NE(again, h);
    EXPECT_EQ(ZQXGetFileType(h, &type), ZQX_ERR_BAD_HANDLE);
    EXPECT_EQ(ZQXGetFileType(0, &type), ZQX_ERR_BAD_HANDLE);
    ZQXCloseFile(again);

    ZQXHANDLE none = 0;
    const std::u16string missing = Wide(dir.File("missing.zq"));
    EXPECT_EQ(ZQXOpenFileWinW(&none, missing.c_str()), ZQX_ERR_NO_FILE);
    const char16_t lone[] = {u'/', 0xD800, u'x', 0};
    EXPECT_EQ(ZQXOpenFileWinW(&none, lone), ZQX_ERR_BAD_ARGUMENT);
    EXPECT_EQ(ZQXOpenFileWinW(nullptr, missing.c_str()), ZQX_ERR_BAD_ARGUMENT);
}
