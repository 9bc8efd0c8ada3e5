// Fuzz target over the whole reading side of the SDK: open with metadata and
// its picture reads from the file, the open for playback with every query, a
// full decode, seeks and the audio check.  The two readers are held to each
// other: the metadata reader never refuses a file the open accepts, and both
// hand out the same picture bytes.  The SDK reads files by path, so each input
// is written to a scratch file first.

#include "zqx/TalvoMetadata.h"
#include "zqx/zqxsdk.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// Bounds the work per input: a valid file can hold hours of audio.
constexpr int kMaxBlocks = 2000;
constexpr int32_t kMaxPictures = 16;

const std::string& ScratchPath()
{
    static const std::string path = [] {
        const char* dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        return std::string(dir) + "/zqx-fuzz-" + std::to_string(getpid()) + ".zq";
    }();
    return path;
}

void ExerciseHandle(ZQXHANDLE h)
{
    int32_t type = 0, count = 0, index = 0;
    uint32_t ms = 0, length = 0;
    ZQXGetFileType(h, &type);
    ZQXGetChapterCount(h, &count);
    for (int32_t i = -1; i <= count && i < 64; ++i) {
        ZQXSeekToChapter(h, i);
        ZQXGetCurrentChapter(h, &index);
    }
    ZQXGetImageCount(h, &count);
    for (int32_t i = 0; i < count && i < kMaxPictures; ++i) {
        ZQXGetImageStartTime(h, i, &ms);
        if (ZQXGetEncodedImage(h, i, nullptr, 0, &length) == ZQX_OK) {
            std::vector<uint8_t> image(length);
            ZQXGetEncodedImage(h, i, image.data(), length, &length);
        }
    }
    ZQXVerifyAudio(h);
    for (uint32_t target : {0u, 1u, 1000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        ZQXSeek(h, target);
        ZQXGetPlaybackPosition(h, &ms);
    }
    ZQXSeek(h, 0);
    std::vector<uint8_t> block(ZQX_MAX_BLOCK_BYTES);
    std::vector<uint8_t> pcm(48000);
    for (int n = 0; n < kMaxBlocks; ++n) {
        const int rc = ZQXGetEncodedAudio(h, block.data(), uint32_t(block.size()), &length);
        if (rc != ZQX_OK && rc != ZQX_ERR_LAST_FRAME)
            break;
        uint32_t produced = 0;
        ZQXDecodePCMFrame(h, block.data(), length, pcm.data(), uint32_t(pcm.size()), &produced);
        if (produced > pcm.size())
            __builtin_trap();
    }
    // A decode of bytes that were never handed out must fail cleanly too.
    uint32_t produced = 0;
    ZQXDecodePCMFrame(h, block.data(), 7, pcm.data(), 16, &produced);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string& path = ScratchPath();
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f)
        return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    const std::u16string wide(path.begin(), path.end());

    CTalvoMetadata metadata;
    const bool listed = metadata.OpenZQXFile(wide) == ZQX_OK;
    const CTalvoMetadata copy = metadata;
    if (listed) {
        (void)copy.GetCoverPicture();
        (void)copy.GetSectionTitle(copy.GetSectionCount());
    }
    ZQXHANDLE h = 0;
    if (ZQXOpenFileWinW(&h, wide.c_str()) == ZQX_OK) {
        if (!listed)
            __builtin_trap();
        int32_t count = 0;
        ZQXGetImageCount(h, &count);
        if (count != copy.GetPictureCount())
            __builtin_trap();
        for (int32_t i = 0; i < count && i < kMaxPictures; ++i) {
            std::vector<uint8_t> fromMetadata;
            uint32_t length = copy.GetPictures()[size_t(i)].byteLength;
            std::vector<uint8_t> fromHandle(length);
            if (copy.ReadPictureBytes(i, fromMetadata) != ZQX_OK ||
                ZQXGetEncodedImage(h, i, fromHandle.data(), length, &length) != ZQX_OK ||
                fromMetadata != fromHandle)
                __builtin_trap();
        }
        ExerciseHandle(h);
        ZQXCloseFile(h);
    }
    return 0;
}
