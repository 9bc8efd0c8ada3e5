#pragma once
// Turns one encoded packet into 16-bit PCM for the SDK-decoded file types.
// One decoder per open handle: Opus keeps state from packet to packet.

#include "ProgramLayout.h"

#include <cstdint>
#include <vector>

struct OpusDecoder;

namespace zqx {

class PacketDecoder {
public:
    PacketDecoder() = default;
    ~PacketDecoder();
    PacketDecoder(const PacketDecoder&) = delete;
    PacketDecoder& operator=(const PacketDecoder&) = delete;

    // ZQX_OK, ZQX_ERR_NOT_DECODABLE for type 4, ZQX_ERR_OUT_OF_MEMORY.
    int Init(const ProgramInfo& info);
    // Forgets the codec's history; the next packet decodes as if it were the first.
    void Reset();

    // Decodes a packet; skip samples are dropped from the front and at most keep
    // sample frames are delivered (keep 0: all that remain).  *produced is bytes.
    // ZQX_ERR_DECODE for a packet that does not decode or yields fewer samples
    // than skip + keep, ZQX_ERR_BUFFER_TOO_SMALL when room is short (nothing written).
    int Decode(const uint8_t* enc, uint32_t encLen, uint32_t skip, uint32_t keep, uint8_t* pcm, uint32_t room,
               uint32_t* produced);

private:
    int32_t fileType = 0;
    uint32_t channels = 1;
    OpusDecoder* opus = nullptr;
    std::vector<int16_t> scratch;
};

} // namespace zqx
