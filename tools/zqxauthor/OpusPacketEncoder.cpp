#include "OpusPacketEncoder.h"

#include <opus/opus.h>

#include <algorithm>

namespace zqxauthor {
namespace {

constexpr std::uint32_t kDefaultBitsPerChannel = 24000;
// Opus never needs more than this for 20 ms; the bound keeps every packet far below the 4096-byte limit.
constexpr int kMaxOpusPacket = 1500;
static_assert(kMaxOpusPacket <= int(kMaxPacketBytes));

bool IsOpusRate(std::uint32_t rate)
{
    return rate == 8000 || rate == 12000 || rate == 16000 || rate == 24000 || rate == 48000;
}

} // namespace

OpusPacketEncoder::OpusPacketEncoder(std::uint32_t sampleRate, std::uint32_t channels, std::uint32_t bitrate)
    : sampleRate_(sampleRate), channels_(channels), frameSamples_(sampleRate * kFrameMs / 1000)
{
    if (!IsOpusRate(sampleRate)) {
        Fail("Opus takes 8000, 12000, 16000, 24000 or 48000 Hz, not " + std::to_string(sampleRate));
        return;
    }
    if (channels < 1 || channels > 2) {
        Fail("Opus programs are mono or stereo, not " + std::to_string(channels) + " channels");
        return;
    }
    int err = OPUS_OK;
    encoder_ = opus_encoder_create(opus_int32(sampleRate), int(channels), OPUS_APPLICATION_AUDIO, &err);
    if (err != OPUS_OK || !encoder_) {
        encoder_ = nullptr;
        Fail(std::string("cannot start the Opus encoder: ") + opus_strerror(err));
        return;
    }
    opus_encoder_ctl(encoder_,
                     OPUS_SET_BITRATE(opus_int32(bitrate ? bitrate : kDefaultBitsPerChannel * channels)));
    opus_encoder_ctl(encoder_, OPUS_SET_SIGNAL(OPUS_SIGNAL_VOICE));
    opus_int32 lookahead = 0;
    opus_encoder_ctl(encoder_, OPUS_GET_LOOKAHEAD(&lookahead));
    preSkip_ = std::uint32_t(lookahead);
}

OpusPacketEncoder::~OpusPacketEncoder()
{
    if (encoder_)
        opus_encoder_destroy(encoder_);
}

// Encodes one frame. The decoded stream runs preSkip_ samples behind the
// input, so this packet delivers its share of decoded samples that fall inside
// [preSkip_, preSkip_ + deliverUpTo).
bool OpusPacketEncoder::EncodeFrame(const std::int16_t* frame, std::uint64_t deliverUpTo,
                                    std::vector<EncodedPacket>& out)
{
    std::vector<std::uint8_t> bytes(kMaxOpusPacket);
    const int n = opus_encode(encoder_, frame, int(frameSamples_), bytes.data(), kMaxOpusPacket);
    if (n < 0)
        return Fail(std::string("the Opus encoder failed: ") + opus_strerror(n));
    bytes.resize(std::size_t(n));
    const std::uint64_t decodedBefore = packetsEncoded_ * frameSamples_;
    ++packetsEncoded_;
    const std::uint64_t first = std::max<std::uint64_t>(decodedBefore, preSkip_);
    const std::uint64_t end = std::min<std::uint64_t>(decodedBefore + frameSamples_, preSkip_ + deliverUpTo);
    if (end <= first)
        return true; // nothing of the input in it: only look-ahead or padding
    EncodedPacket packet;
    packet.bytes = std::move(bytes);
    packet.skip = std::uint32_t(first - decodedBefore);
    packet.samples = std::uint32_t(end - first);
    deliveredSamples_ += packet.samples;
    out.push_back(std::move(packet));
    return true;
}

bool OpusPacketEncoder::Encode(std::span<const std::int16_t> interleaved, std::vector<EncodedPacket>& out)
{
    if (!Error().empty())
        return false;
    inputSamples_ += interleaved.size() / channels_;
    pending_.insert(pending_.end(), interleaved.begin(), interleaved.end());
    const std::size_t step = std::size_t(frameSamples_) * channels_;
    std::size_t at = 0;
    for (; pending_.size() - at >= step; at += step) {
        // While input keeps coming, every decoded sample of a full frame is input.
        if (!EncodeFrame(pending_.data() + at, ~std::uint64_t(0) >> 1, out))
            return false;
    }
    pending_.erase(pending_.begin(), pending_.begin() + std::ptrdiff_t(at));
    return true;
}

bool OpusPacketEncoder::Finish(std::vector<EncodedPacket>& out)
{
    if (!Error().empty())
        return false;
    // Encode silence after the input until the look-ahead has flushed all of it.
    const std::size_t step = std::size_t(frameSamples_) * channels_;
    while (deliveredSamples_ < inputSamples_) {
        pending_.resize(step, 0);
        if (!EncodeFrame(pending_.data(), inputSamples_, out))
            return false;
        pending_.clear();
    }
    pending_.clear();
    return true;
}

} // namespace zqxauthor
