#include "PacketDecoder.h"

#include "ByteOrder.h"
#include "ContainerFormat.h"
#include "codec/ImaAdpcm.h"
#include "zqx/zqxsdk.h"

#include <opus.h>

namespace zqx {

PacketDecoder::~PacketDecoder()
{
    if (opus)
        opus_decoder_destroy(opus);
}

int PacketDecoder::Init(const ProgramInfo& info)
{
    fileType = info.fileType;
    channels = info.channels;
    switch (fileType) {
    case ZQX_TYPE_MP3:
        return ZQX_ERR_NOT_DECODABLE;
    case ZQX_TYPE_OPUS: {
        int error = OPUS_OK;
        opus =
            opus_decoder_create(static_cast<opus_int32>(info.sampleRate), static_cast<int>(channels), &error);
        if (!opus || error != OPUS_OK)
            return ZQX_ERR_OUT_OF_MEMORY;
        scratch.resize(size_t(info.sampleRate) * format::kOpusMaxPacketMs / 1000 * channels);
        return ZQX_OK;
    }
    default:
        scratch.resize(ImaMaxSamples(ZQX_MAX_BLOCK_BYTES) * channels);
        return ZQX_OK;
    }
}

void PacketDecoder::Reset()
{
    if (opus)
        opus_decoder_ctl(opus, OPUS_RESET_STATE);
}

int PacketDecoder::Decode(const uint8_t* enc, uint32_t encLen, uint32_t skip, uint32_t keep, uint8_t* pcm,
                          uint32_t room, uint32_t* produced)
{
    *produced = 0;
    if (encLen == 0 || encLen > ZQX_MAX_BLOCK_BYTES)
        return ZQX_ERR_DECODE;
    size_t frames = 0;
    const int16_t* source = scratch.data();
    switch (fileType) {
    case ZQX_TYPE_ADPCM_8K:
    case ZQX_TYPE_ADPCM_16K: {
        const int n = ImaDecodeBlock(enc, encLen, scratch.data(), scratch.size());
        if (n < 0)
            return ZQX_ERR_DECODE;
        frames = static_cast<size_t>(n);
        break;
    }
    case ZQX_TYPE_OPUS: {
        const int n = opus_decode(opus, enc, static_cast<opus_int32>(encLen), scratch.data(),
                                  static_cast<int>(scratch.size() / channels), 0);
        if (n < 0)
            return ZQX_ERR_DECODE;
        frames = static_cast<size_t>(n);
        break;
    }
    case ZQX_TYPE_PCM16:
        if (encLen % (2 * channels) != 0)
            return ZQX_ERR_DECODE;
        frames = encLen / (2 * channels);
        for (size_t i = 0; i < frames * channels; ++i)
            scratch[i] = static_cast<int16_t>(LoadLe16(enc + 2 * i));
        break;
    default:
        return ZQX_ERR_NOT_DECODABLE;
    }
    if (skip > frames || (keep != 0 && keep > frames - skip))
        return ZQX_ERR_DECODE;
    const size_t deliver = keep != 0 ? keep : frames - skip;
    const size_t bytes = deliver * channels * 2;
    if (bytes > room)
        return ZQX_ERR_BUFFER_TOO_SMALL;
    source += skip * channels;
    for (size_t i = 0; i < deliver * channels; ++i)
        StoreLe16(pcm + 2 * i, static_cast<uint16_t>(source[i]));
    *produced = static_cast<uint32_t>(bytes);
    return ZQX_OK;
}

} // namespace zqx
