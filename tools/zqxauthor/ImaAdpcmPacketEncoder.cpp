#include "ImaAdpcmPacketEncoder.h"

#include "codec/ImaAdpcm.h"

namespace zqxauthor {

ImaAdpcmPacketEncoder::ImaAdpcmPacketEncoder(std::uint32_t sampleRate, std::size_t blockBytes)
    : sampleRate_(sampleRate), blockBytes_(blockBytes), blockSamples_(zqx::ImaMaxSamples(blockBytes))
{
    if (blockBytes <= zqx::kImaBlockHeaderBytes || blockBytes > kMaxPacketBytes)
        Fail("IMA ADPCM block size " + std::to_string(blockBytes) + " is outside 5.." +
             std::to_string(kMaxPacketBytes));
}

EncodedPacket ImaAdpcmPacketEncoder::EncodeBlock(std::span<const std::int16_t> samples)
{
    EncodedPacket packet;
    packet.samples = std::uint32_t(samples.size());
    packet.bytes.assign(zqx::kImaBlockHeaderBytes + samples.size() / 2, 0);
    // The block restarts the predictor on its first sample, stored exactly;
    // the step index carries over so the next codes start well scaled.
    zqx::ImaState state{samples[0], stepIndex_};
    packet.bytes[0] = std::uint8_t(std::uint16_t(samples[0]) & 0xFF);
    packet.bytes[1] = std::uint8_t(std::uint16_t(samples[0]) >> 8);
    packet.bytes[2] = std::uint8_t(state.stepIndex);
    for (std::size_t i = 1; i < samples.size(); ++i) {
        const int step = zqx::kImaStepTable[std::size_t(state.stepIndex)];
        int diff = samples[i] - state.predictor;
        std::uint8_t code = 0;
        if (diff < 0) {
            code = 8;
            diff = -diff;
        }
        // Successive approximation of diff * 4 / step, as the decoder rebuilds it.
        int part = step;
        for (std::uint8_t bit = 4; bit; bit >>= 1, part >>= 1) {
            if (diff >= part) {
                code |= bit;
                diff -= part;
            }
        }
        zqx::ImaDecodeNibble(state, code);
        const std::size_t nibble = i - 1;
        packet.bytes[zqx::kImaBlockHeaderBytes + nibble / 2] |= std::uint8_t(nibble % 2 ? code << 4 : code);
    }
    stepIndex_ = state.stepIndex;
    return packet;
}

bool ImaAdpcmPacketEncoder::Encode(std::span<const std::int16_t> interleaved, std::vector<EncodedPacket>& out)
{
    if (!Error().empty())
        return false;
    pending_.insert(pending_.end(), interleaved.begin(), interleaved.end());
    std::size_t at = 0;
    for (; pending_.size() - at >= blockSamples_; at += blockSamples_)
        out.push_back(EncodeBlock(std::span(pending_).subspan(at, blockSamples_)));
    pending_.erase(pending_.begin(), pending_.begin() + std::ptrdiff_t(at));
    return true;
}

bool ImaAdpcmPacketEncoder::Finish(std::vector<EncodedPacket>& out)
{
    if (!Error().empty())
        return false;
    if (!pending_.empty())
        out.push_back(EncodeBlock(pending_));
    pending_.clear();
    return true;
}

} // namespace zqxauthor
