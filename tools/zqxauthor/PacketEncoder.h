#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace zqxauthor {

// One packet of a program file as the SDK hands it out: the encoded bytes and
// how many sample frames (samples per channel) it decodes to.
struct EncodedPacket {
    std::vector<std::uint8_t> bytes;
    std::uint32_t samples = 0;
    // Decoded samples to drop before those: the codec's start-up delay, on the first packet only.
    std::uint32_t skip = 0;
};

// Turns 16-bit interleaved PCM at the encoder's own rate and channel count
// into the packets of one file type. Every packet but the last decodes to the
// same number of samples, which keeps the player's refill loop from dropping
// audio, and no packet is larger than the SDK's 4096-byte read buffer.
class PacketEncoder {
public:
    virtual ~PacketEncoder() = default;

    virtual std::uint32_t SampleRate() const = 0;
    virtual std::uint32_t Channels() const = 0;
    // Appends the packets completed by these samples to `out`.
    virtual bool Encode(std::span<const std::int16_t> interleaved, std::vector<EncodedPacket>& out) = 0;
    // Flushes what is buffered; the encoder takes no more input afterwards.
    virtual bool Finish(std::vector<EncodedPacket>& out) = 0;
    // Samples of codec delay at the start of the decoded stream (Opus pre-skip).
    virtual std::uint32_t PreSkip() const { return 0; }
    const std::string& Error() const { return error_; }

protected:
    bool Fail(std::string message)
    {
        if (error_.empty())
            error_ = std::move(message);
        return false;
    }

private:
    std::string error_;
};

// The largest packet the player's SDK read buffer takes.
inline constexpr std::size_t kMaxPacketBytes = 4096;

} // namespace zqxauthor
