#pragma once

#include "PacketEncoder.h"

namespace zqxauthor {

// Types 1 and 2: IMA ADPCM, mono, in self-contained blocks of one size (so
// every block but the last decodes to the same number of samples). The
// predictor steps with the SDK's own ImaDecodeNibble, so the encoder's idea of
// the decoded signal is exactly what the player will hear.
class ImaAdpcmPacketEncoder final : public PacketEncoder {
public:
    // 256-byte blocks at 8000 Hz and 512-byte blocks at 16000 Hz: about 63 ms
    // per block, small enough for fine seeking, large enough that the 4-byte
    // block header costs under 2 %.
    static constexpr std::size_t BlockBytesFor(std::uint32_t sampleRate)
    {
        return sampleRate > 8000 ? 512 : 256;
    }

    ImaAdpcmPacketEncoder(std::uint32_t sampleRate, std::size_t blockBytes);

    std::uint32_t SampleRate() const override { return sampleRate_; }
    std::uint32_t Channels() const override { return 1; }
    bool Encode(std::span<const std::int16_t> interleaved, std::vector<EncodedPacket>& out) override;
    bool Finish(std::vector<EncodedPacket>& out) override;

private:
    EncodedPacket EncodeBlock(std::span<const std::int16_t> samples);

    std::uint32_t sampleRate_;
    std::size_t blockBytes_;
    std::size_t blockSamples_;
    std::int32_t stepIndex_ = 0; // carried from block to block
    std::vector<std::int16_t> pending_;
};

} // namespace zqxauthor
