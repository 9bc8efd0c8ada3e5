#include "Pcm16PacketEncoder.h"

namespace zqxauthor {

Pcm16PacketEncoder::Pcm16PacketEncoder(std::uint32_t sampleRate, std::uint32_t channels)
    : sampleRate_(sampleRate), channels_(channels)
{
    if (channels < 1 || channels > 2)
        Fail("16-bit PCM takes 1 or 2 channels, not " + std::to_string(channels));
}

void Pcm16PacketEncoder::Emit(std::span<const std::int16_t> samples, std::vector<EncodedPacket>& out) const
{
    EncodedPacket packet;
    packet.samples = std::uint32_t(samples.size() / channels_);
    packet.bytes.reserve(samples.size() * 2);
    for (std::int16_t s : samples) {
        packet.bytes.push_back(std::uint8_t(std::uint16_t(s) & 0xFF));
        packet.bytes.push_back(std::uint8_t(std::uint16_t(s) >> 8));
    }
    out.push_back(std::move(packet));
}

bool Pcm16PacketEncoder::Encode(std::span<const std::int16_t> interleaved, std::vector<EncodedPacket>& out)
{
    if (!Error().empty())
        return false;
    const std::size_t perPacket = kMaxPacketBytes / 2 / channels_ * channels_;
    pending_.insert(pending_.end(), interleaved.begin(), interleaved.end());
    std::size_t at = 0;
    for (; pending_.size() - at >= perPacket; at += perPacket)
        Emit(std::span(pending_).subspan(at, perPacket), out);
    pending_.erase(pending_.begin(), pending_.begin() + std::ptrdiff_t(at));
    return true;
}

bool Pcm16PacketEncoder::Finish(std::vector<EncodedPacket>& out)
{
    if (!Error().empty())
        return false;
    pending_.resize(pending_.size() / channels_ * channels_);
    if (!pending_.empty())
        Emit(pending_, out);
    pending_.clear();
    return true;
}

} // namespace zqxauthor
