#pragma once
// The SDK's decode of a whole program, as the player reads it: each block
// through ZQXGetEncodedAudio and ZQXDecodePCMFrame, or for type 4 each frame
// fed to libmpg123.  Shared by the benchmarks that compare against it.
#include "zqx/zqxsdk.h"

#include <cstdint>
#include <mpg123.h>
#include <string>
#include <vector>

namespace bench {

// PCM room per decode call, ample for every block.
inline constexpr std::uint32_t kDecodeRoom = 1 << 16;

// Returns the PCM bytes decoded, 0 when the file does not open.
inline std::uint64_t DecodeThroughSdk(const std::u16string& path, int type)
{
    ZQXHANDLE h = 0;
    if (ZQXOpenFileWinW(&h, path.c_str()) != ZQX_OK)
        return 0;
    std::vector<std::uint8_t> block(ZQX_MAX_BLOCK_BYTES), pcm(kDecodeRoom);
    std::uint64_t bytes = 0;
    std::uint32_t len = 0;
    if (type == 4) {
        mpg123_handle* mh = mpg123_new(nullptr, nullptr);
        mpg123_param(mh, MPG123_FLAGS, MPG123_QUIET, 0);
        mpg123_open_feed(mh);
        int status = ZQX_OK;
        while ((status = ZQXGetEncodedAudio(h, block.data(), ZQX_MP3_FRAME_BYTES, &len)) == ZQX_OK ||
               status == ZQX_ERR_LAST_FRAME) {
            size_t done = 0;
            mpg123_decode(mh, block.data(), len, pcm.data(), pcm.size(), &done);
            bytes += done;
            if (status == ZQX_ERR_LAST_FRAME)
                break;
        }
        mpg123_delete(mh);
    } else {
        while (ZQXGetEncodedAudio(h, block.data(), ZQX_MAX_BLOCK_BYTES, &len) == ZQX_OK) {
            std::uint32_t produced = 0;
            ZQXDecodePCMFrame(h, block.data(), len, pcm.data(), kDecodeRoom, &produced);
            bytes += produced;
        }
    }
    ZQXCloseFile(h);
    return bytes;
}

} // namespace bench
