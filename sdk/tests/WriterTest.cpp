// The writer on long programs: its memory does not grow with the audio, and
// however it ends, only the finished file remains in the folder.

#include "SdkTestSupport.h"

#include <gtest/gtest.h>

#include <malloc.h>

using namespace zqxtest;

namespace {

// Heap bytes in use now, large blocks (which malloc maps one by one) included;
// the sanitizers' allocator does not report them.
size_t HeapInUse()
{
    const struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
}

bool SanitizerAllocator()
{
#if defined(__SANITIZE_ADDRESS__)
    return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
    return true;
#endif
#endif
    return false;
}

std::vector<std::string> FolderEntries(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    return names;
}

} // namespace

TEST(Writer, MemoryDoesNotGrowWithTheProgram)
{
    if (SanitizerAllocator())
        GTEST_SKIP() << "the sanitizers' allocator does not report heap use";
    ScratchFolder dir;
    const std::string path = dir.File("long.zq");
    constexpr uint32_t kFrames = 512; // 1 KiB of mono PCM per packet
    const std::vector<uint8_t> packet(kFrames * 2, 0x11);
    CZQXWriter w;
    ASSERT_EQ(w.Create(path, ZQX_TYPE_PCM16, 8000, 1), ZQX_OK);
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(w.AddPacket(packet.data(), packet.size(), kFrames), ZQX_OK);
    const size_t before = HeapInUse();
    // 32 MiB more audio, which held in memory would take more than that.
    for (int i = 0; i < 32 * 1024; ++i)
        ASSERT_EQ(w.AddPacket(packet.data(), packet.size(), kFrames), ZQX_OK);
    EXPECT_LT(HeapInUse(), before + (1u << 20));
    ASSERT_EQ(w.Finish(), ZQX_OK);

    ZQXHANDLE h = OpenOrFail(path);
    EXPECT_EQ(ZQXVerifyAudio(h), ZQX_OK);
    EXPECT_EQ(ZQXCloseFile(h), ZQX_OK);
}

TEST(Writer, OnlyTheFinishedFileRemainsInTheFolder)
{
    ScratchFolder dir;
    const std::vector<uint8_t> packet(1024, 0x22);
    for (bool finish : {true, false}) {
        const std::string path = dir.File("kept.zq");
        {
            CZQXWriter w;
            ASSERT_EQ(w.Create(path, ZQX_TYPE_PCM16, 8000, 1), ZQX_OK);
            for (int i = 0; i < 600; ++i)
                ASSERT_EQ(w.AddPacket(packet.data(), packet.size(), 512), ZQX_OK);
            if (finish) {
                ASSERT_EQ(w.Finish(), ZQX_OK);
            }
        }
        const auto expected = finish ? std::vector<std::string>{"kept.zq"} : std::vector<std::string>{};
        EXPECT_EQ(FolderEntries(dir.File("")), expected) << finish;
        std::filesystem::remove(path);
    }
}
