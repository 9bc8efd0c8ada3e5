#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <vector>

namespace zqxauthor {

// Re-packs an MPEG-2 Layer III, 22050 Hz mono bitstream into frames of exactly
// kFrameBytes bytes each, as the player's type-4 decoder takes them.
//
// An encoder cannot emit such frames itself: a 32 kbps frame at 22050 Hz is
// 104.49 bytes long, so its padding bit alternates 104- and 105-byte frames.
// The re-packer keeps every frame's side information and main data unchanged
// and only moves the main data through the bit reservoir: each output frame is
// a 32 kbps frame without padding and without CRC, its main_data_begin
// recomputed, and unused reservoir room filled with zero (ancillary) bytes.
// Decoding the input and the output therefore gives identical PCM.
//
// The input must spend on average less main data per frame than the
// kMainDataBytes an output frame carries; when the reservoir cannot absorb the
// difference, Push fails with an error naming the frame.
class Mp3FrameRepacker {
public:
    static constexpr std::size_t kFrameBytes = 104;
    static constexpr std::size_t kHeaderBytes = 4;
    // MPEG-2 single-channel side information: one granule of one channel.
    static constexpr std::size_t kSideInfoBytes = 9;
    static constexpr std::size_t kMainDataBytes = kFrameBytes - kHeaderBytes - kSideInfoBytes;
    // main_data_begin is an 8-bit field in MPEG-2 side information.
    static constexpr std::size_t kMaxMainDataBegin = 255;
    static constexpr std::size_t kSamplesPerFrame = 576;
    static constexpr std::uint32_t kSampleRate = 22050;

    using Frame = std::array<std::uint8_t, kFrameBytes>;

    // Appends encoder output (any split of the bitstream). Complete output
    // frames become available through TakeFrames. False on malformed input
    // or reservoir overflow; Error() says why, and the re-packer stays failed.
    bool Push(std::span<const std::uint8_t> bytes);
    // Ends the stream: every frame still held is released. False if trailing
    // bytes do not form a whole frame or an earlier Push failed.
    bool Finish();
    std::vector<Frame> TakeFrames();

    const std::string& Error() const { return error_; }
    std::size_t InputFrames() const { return inputFrames_; }
    bool ReservoirOverflowed() const { return overflowed_; }

private:
    struct Pending {
        std::array<std::uint8_t, kHeaderBytes + kSideInfoBytes> headerAndSideInfo;
    };

    bool ParseFrames();
    bool PlaceFrame(std::span<const std::uint8_t> frame);
    void EmitReadyFrames(bool all);
    bool Fail(std::string message);

    std::vector<std::uint8_t> input_;       // bytes not yet parsed into frames
    std::vector<std::uint8_t> inReservoir_; // main-data slots of recent input frames
    std::size_t inReservoirBase_ = 0;       // input main-data position of inReservoir_[0]
    std::size_t inMainDataPos_ = 0;         // input main-data position after the last frame

    std::deque<Pending> pending_;         // placed, not yet emitted
    std::vector<std::uint8_t> outStream_; // output main data from outStreamBase_ on
    std::size_t outStreamBase_ = 0;       // == kMainDataBytes * (index of pending_.front())
    std::size_t outEnd_ = 0;              // end of the last placed main data
    std::size_t placedFrames_ = 0;
    std::size_t inputFrames_ = 0;

    std::vector<Frame> ready_;
    bool overflowed_ = false;
    std::string error_;
};

} // namespace zqxauthor
