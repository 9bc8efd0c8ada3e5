#pragma once

#include "PacketEncoder.h"

namespace zqxauthor {

// Type 5: 16-bit little-endian PCM, interleaved, cut into packets that fill
// the SDK's 4096-byte read buffer.
class Pcm16PacketEncoder final : public PacketEncoder {
public:
    Pcm16PacketEncoder(std::uint32_t sampleRate, std::uint32_t channels);

    std::uint32_t SampleRate() const override { return sampleRate_; }
    std::uint32_t Channels() const override { return channels_; }
    bool Encode(std::span<const std::int16_t> interleaved, std::vector<EncodedPacket>& out) override;
    bool Finish(std::vector<EncodedPacket>& out) override;

private:
    void Emit(std::span<const std::int16_t> samples, std::vector<EncodedPacket>& out) const;

    std::uint32_t sampleRate_;
    std::uint32_t channels_;
    std::vector<std::int16_t> pending_;
};

} // namespace zqxauthor
