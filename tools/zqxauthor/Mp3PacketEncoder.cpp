#include "Mp3PacketEncoder.h"

#include <lame/lame.h>

namespace zqxauthor {
namespace {

constexpr int kAverageKbps = 28;
constexpr int kMaxFrameKbps = 32; // the output frame's rate; larger encoder frames only strain the reservoir
constexpr int kConstantKbps = 24;
constexpr int kQuality = 2; // LAME's algorithm quality: 2 is its recommended "high" setting

// LAME's worst-case output size for n samples, from its documentation.
std::size_t LameBufferBytes(std::size_t samples)
{
    return samples * 5 / 4 + 7200;
}

} // namespace

Mp3PacketEncoder::Mp3PacketEncoder(Rate rate)
{
    lame_ = lame_init();
    if (!lame_) {
        Fail("cannot start the MP3 encoder");
        return;
    }
    lame_set_num_channels(lame_, 1);
    lame_set_in_samplerate(lame_, int(Mp3FrameRepacker::kSampleRate));
    lame_set_out_samplerate(lame_, int(Mp3FrameRepacker::kSampleRate));
    lame_set_mode(lame_, MONO);
    lame_set_quality(lame_, kQuality);
    // No Xing/Info frame and no ID3 tags: the packets must be audio frames only.
    lame_set_bWriteVbrTag(lame_, 0);
    lame_set_write_id3tag_automatic(lame_, 0);
    lame_set_error_protection(lame_, 0);
    if (rate == Rate::Average) {
        lame_set_VBR(lame_, vbr_abr);
        lame_set_VBR_mean_bitrate_kbps(lame_, kAverageKbps);
        lame_set_VBR_max_bitrate_kbps(lame_, kMaxFrameKbps);
    } else {
        lame_set_VBR(lame_, vbr_off);
        lame_set_brate(lame_, kConstantKbps);
    }
    if (lame_init_params(lame_) < 0)
        Fail("the MP3 encoder rejected its settings");
}

Mp3PacketEncoder::~Mp3PacketEncoder()
{
    if (lame_)
        lame_close(lame_);
}

bool Mp3PacketEncoder::Repack(std::span<const std::uint8_t> bytes, std::vector<EncodedPacket>& out)
{
    if (keepRaw_)
        raw_.insert(raw_.end(), bytes.begin(), bytes.end());
    if (!repacker_.Push(bytes))
        return Fail(repacker_.Error());
    for (const auto& frame : repacker_.TakeFrames())
        out.push_back({{frame.begin(), frame.end()}, Mp3FrameRepacker::kSamplesPerFrame});
    return true;
}

bool Mp3PacketEncoder::Encode(std::span<const std::int16_t> interleaved, std::vector<EncodedPacket>& out)
{
    if (!Error().empty())
        return false;
    // LAME takes an int sample count; feed long inputs in pieces.
    constexpr std::size_t kChunk = 1 << 16;
    for (std::size_t at = 0; at < interleaved.size(); at += kChunk) {
        const auto part = interleaved.subspan(at, std::min(kChunk, interleaved.size() - at));
        buffer_.resize(LameBufferBytes(part.size()));
        const int n = lame_encode_buffer(lame_, part.data(), nullptr, int(part.size()), buffer_.data(),
                                         int(buffer_.size()));
        if (n < 0)
            return Fail("the MP3 encoder failed with code " + std::to_string(n));
        if (!Repack(std::span(buffer_.data(), std::size_t(n)), out))
            return false;
    }
    return true;
}

bool Mp3PacketEncoder::Finish(std::vector<EncodedPacket>& out)
{
    if (!Error().empty())
        return false;
    buffer_.resize(LameBufferBytes(0));
    const int n = lame_encode_flush(lame_, buffer_.data(), int(buffer_.size()));
    if (n < 0)
        return Fail("the MP3 encoder failed at the end with code " + std::to_string(n));
    if (!Repack(std::span(buffer_.data(), std::size_t(n)), out))
        return false;
    if (!repacker_.Finish())
        return Fail(repacker_.Error());
    for (const auto& frame : repacker_.TakeFrames())
        out.push_back({{frame.begin(), frame.end()}, Mp3FrameRepacker::kSamplesPerFrame});
    return true;
}

} // namespace zqxauthor
