#pragma once

#include "PacketEncoder.h"

struct OpusEncoder;

namespace zqxauthor {

// Type 3: Opus, mono or stereo, 20 ms per packet. The encoder's look-ahead
// (pre-skip) is returned by PreSkip and goes on the first packet as samples to
// drop; the last packet is trimmed so the file delivers exactly the samples
// that went in.
class OpusPacketEncoder final : public PacketEncoder {
public:
    static constexpr std::uint32_t kFrameMs = 20;

    // bitrate in bit/s; 0 chooses 24 kbit/s per channel, ample for speech.
    OpusPacketEncoder(std::uint32_t sampleRate, std::uint32_t channels, std::uint32_t bitrate = 0);
    ~OpusPacketEncoder() override;
    OpusPacketEncoder(const OpusPacketEncoder&) = delete;
    OpusPacketEncoder& operator=(const OpusPacketEncoder&) = delete;

    std::uint32_t SampleRate() const override { return sampleRate_; }
    std::uint32_t Channels() const override { return channels_; }
    bool Encode(std::span<const std::int16_t> interleaved, std::vector<EncodedPacket>& out) override;
    bool Finish(std::vector<EncodedPacket>& out) override;
    std::uint32_t PreSkip() const override { return preSkip_; }

private:
    bool EncodeFrame(const std::int16_t* frame, std::uint64_t deliverUpTo, std::vector<EncodedPacket>& out);

    OpusEncoder* encoder_ = nullptr;
    std::uint32_t sampleRate_;
    std::uint32_t channels_;
    std::uint32_t frameSamples_;
    std::uint32_t preSkip_ = 0;
    std::uint64_t inputSamples_ = 0;     // sample frames given to Encode
    std::uint64_t deliveredSamples_ = 0; // sample frames the packets so far deliver
    std::uint64_t packetsEncoded_ = 0;
    std::vector<std::int16_t> pending_;
};

} // namespace zqxauthor
