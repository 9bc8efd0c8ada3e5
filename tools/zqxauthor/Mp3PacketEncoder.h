#pragma once

#include "Mp3FrameRepacker.h"
#include "PacketEncoder.h"

struct lame_global_struct;

namespace zqxauthor {

// Type 4: MPEG-2 Layer III at 22050 Hz mono in frames of exactly 104 bytes,
// one frame per packet, 576 samples each. LAME encodes below the 32 kbit/s that
// a 104-byte frame carries and Mp3FrameRepacker fits its frames to 104 bytes.
class Mp3PacketEncoder final : public PacketEncoder {
public:
    enum class Rate {
        // Average 28 kbit/s, frames of at most 32 kbit/s: close to the frame
        // size with room left for the reservoir to absorb louder stretches.
        Average,
        // Constant 24 kbit/s: never overflows the reservoir (each encoder frame
        // carries less main data than an output frame), at some cost in quality.
        Constant,
    };

    explicit Mp3PacketEncoder(Rate rate = Rate::Average);
    ~Mp3PacketEncoder() override;
    Mp3PacketEncoder(const Mp3PacketEncoder&) = delete;
    Mp3PacketEncoder& operator=(const Mp3PacketEncoder&) = delete;

    std::uint32_t SampleRate() const override { return Mp3FrameRepacker::kSampleRate; }
    std::uint32_t Channels() const override { return 1; }
    bool Encode(std::span<const std::int16_t> interleaved, std::vector<EncodedPacket>& out) override;
    bool Finish(std::vector<EncodedPacket>& out) override;

    bool ReservoirOverflowed() const { return repacker_.ReservoirOverflowed(); }

    // The encoder's raw output before re-packing (for checks that both decode alike).
    void KeepRawStream(bool keep) { keepRaw_ = keep; }
    const std::vector<std::uint8_t>& RawStream() const { return raw_; }

private:
    bool Repack(std::span<const std::uint8_t> bytes, std::vector<EncodedPacket>& out);

    lame_global_struct* lame_ = nullptr;
    Mp3FrameRepacker repacker_;
    std::vector<std::uint8_t> buffer_;
    bool keepRaw_ = false;
    std::vector<std::uint8_t> raw_;
};

} // namespace zqxauthor
