#include "ProgramLayout.h"

#include "ContainerFormat.h"
#include "codec/ImaAdpcm.h"
#include "zqx/zqxsdk.h"

#include <algorithm>
#include <array>

namespace zqx {

int CheckStreamFormat(int32_t fileType, uint32_t sampleRate, uint32_t channels)
{
    switch (fileType) {
    case ZQX_TYPE_ADPCM_8K:
        return sampleRate == 8000 && channels == 1 ? ZQX_OK : ZQX_ERR_UNSUPPORTED;
    case ZQX_TYPE_ADPCM_16K:
        return sampleRate == 16000 && channels == 1 ? ZQX_OK : ZQX_ERR_UNSUPPORTED;
    case ZQX_TYPE_OPUS: {
        constexpr std::array<uint32_t, 5> opusRates = {8000, 12000, 16000, 24000, 48000};
        const bool rateOk = std::find(opusRates.begin(), opusRates.end(), sampleRate) != opusRates.end();
        return rateOk && (channels == 1 || channels == 2) ? ZQX_OK : ZQX_ERR_UNSUPPORTED;
    }
    case ZQX_TYPE_MP3:
        return sampleRate == format::kMp3SampleRate && channels == 1 ? ZQX_OK : ZQX_ERR_UNSUPPORTED;
    case ZQX_TYPE_PCM16:
        return sampleRate >= 1000 && sampleRate <= 192000 && (channels == 1 || channels == 2)
                   ? ZQX_OK
                   : ZQX_ERR_UNSUPPORTED;
    default:
        return ZQX_ERR_UNSUPPORTED;
    }
}

bool PacketShapeValid(const ProgramInfo& info, uint32_t bytes, uint32_t samples, uint32_t skip)
{
    if (bytes == 0 || bytes > ZQX_MAX_BLOCK_BYTES || samples == 0 || samples > 0xFFFF)
        return false;
    switch (info.fileType) {
    case ZQX_TYPE_ADPCM_8K:
    case ZQX_TYPE_ADPCM_16K:
        // All codes are used but the last, which may pad an even sample count.
        return skip == 0 && bytes >= kImaBlockHeaderBytes && samples <= ImaMaxSamples(bytes) &&
               samples + 1 >= ImaMaxSamples(bytes);
    case ZQX_TYPE_OPUS:
        return uint64_t(skip) + samples <= uint64_t(info.sampleRate) * format::kOpusMaxPacketMs / 1000;
    case ZQX_TYPE_MP3:
        return skip == 0 && bytes == ZQX_MP3_FRAME_BYTES && samples == format::kMp3FrameSamples;
    case ZQX_TYPE_PCM16:
        return skip == 0 && uint64_t(samples) * info.channels * 2 == bytes;
    default:
        return false;
    }
}

uint32_t SamplesToMs(uint64_t samples, uint32_t sampleRate)
{
    if (sampleRate == 0)
        return 0;
    const uint64_t ms = samples * 1000 / sampleRate;
    return ms > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(ms);
}

uint64_t MsToSamples(uint32_t ms, uint32_t sampleRate)
{
    return uint64_t(ms) * sampleRate / 1000;
}

bool PictureSignatureMatches(uint32_t kind, const std::vector<uint8_t>& bytes)
{
    constexpr std::array<uint8_t, 3> jpeg = {0xFF, 0xD8, 0xFF};
    constexpr std::array<uint8_t, 8> png = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    if (kind == format::kPictureJpeg)
        return bytes.size() >= jpeg.size() && std::equal(jpeg.begin(), jpeg.end(), bytes.begin());
    if (kind == format::kPicturePng)
        return bytes.size() >= png.size() && std::equal(png.begin(), png.end(), bytes.begin());
    return false;
}

} // namespace zqx
