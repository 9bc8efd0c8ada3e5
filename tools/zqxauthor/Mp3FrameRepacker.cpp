#include "Mp3FrameRepacker.h"

#include <algorithm>

namespace zqxauthor {
namespace {

// MPEG-2 (lower sampling frequencies) Layer III bit rates in kbit/s by index;
// index 0 is free format, which the player's frames never use.
constexpr std::array<unsigned, 15> kLsfLayer3Kbps = {0,  8,  16, 24,  32,  40,  48, 56,
                                                     64, 80, 96, 112, 128, 144, 160};
constexpr unsigned kOutputBitrateIndex = 4; // 32 kbit/s: 72 * 32000 / 22050 = 104 bytes without padding
static_assert(kLsfLayer3Kbps[kOutputBitrateIndex] * 72000 / Mp3FrameRepacker::kSampleRate ==
              Mp3FrameRepacker::kFrameBytes);

constexpr unsigned kVersionMpeg2 = 2;
constexpr unsigned kLayer3 = 1;
constexpr unsigned kModeMono = 3;
constexpr std::size_t kCrcBytes = 2;
// The input reservoir never needs more than the largest back-pointer behind the current slot.
constexpr std::size_t kInputReservoirKeep = 511;

} // namespace

bool Mp3FrameRepacker::Fail(std::string message)
{
    if (error_.empty())
        error_ = std::move(message);
    return false;
}

bool Mp3FrameRepacker::Push(std::span<const std::uint8_t> bytes)
{
    if (!error_.empty())
        return false;
    input_.insert(input_.end(), bytes.begin(), bytes.end());
    return ParseFrames();
}

bool Mp3FrameRepacker::ParseFrames()
{
    std::size_t at = 0;
    while (input_.size() - at >= kHeaderBytes) {
        const std::uint8_t* h = input_.data() + at;
        const std::string where = "frame " + std::to_string(inputFrames_);
        if (h[0] != 0xFF || (h[1] & 0xE0) != 0xE0)
            return Fail("no MPEG audio frame header at " + where);
        const unsigned version = (h[1] >> 3) & 3;
        const unsigned layer = (h[1] >> 1) & 3;
        const bool hasCrc = (h[1] & 1) == 0;
        const unsigned bitrateIndex = h[2] >> 4;
        const unsigned rateIndex = (h[2] >> 2) & 3;
        const unsigned padding = (h[2] >> 1) & 1;
        const unsigned mode = h[3] >> 6;
        if (version != kVersionMpeg2 || layer != kLayer3)
            return Fail(where + " is not MPEG-2 Layer III");
        if (rateIndex != 0)
            return Fail(where + " is not sampled at 22050 Hz");
        if (mode != kModeMono)
            return Fail(where + " is not mono");
        if (bitrateIndex == 0 || bitrateIndex >= kLsfLayer3Kbps.size())
            return Fail(where + " has a free-format or invalid bit rate");
        const std::size_t length = kLsfLayer3Kbps[bitrateIndex] * 72000 / kSampleRate + padding;
        const std::size_t overhead = kHeaderBytes + (hasCrc ? kCrcBytes : 0) + kSideInfoBytes;
        if (length < overhead)
            return Fail(where + " is shorter than its side information");
        if (input_.size() - at < length)
            break;
        if (!PlaceFrame(std::span(h, length)))
            return false;
        at += length;
    }
    input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(at));
    return true;
}

bool Mp3FrameRepacker::PlaceFrame(std::span<const std::uint8_t> frame)
{
    const std::string where = "frame " + std::to_string(inputFrames_);
    const bool hasCrc = (frame[1] & 1) == 0;
    const std::size_t sideAt = kHeaderBytes + (hasCrc ? kCrcBytes : 0);
    const std::uint8_t* side = frame.data() + sideAt;
    const std::size_t mainDataBegin = side[0];
    const std::size_t part23Bits = (std::size_t(side[1] & 0x7F) << 5) | (side[2] >> 3);
    const std::size_t dataBytes = (part23Bits + 7) / 8;

    // Find the frame's main data in the input's reservoir.
    const std::size_t slotStart = inMainDataPos_;
    if (mainDataBegin > slotStart - inReservoirBase_)
        return Fail(where + " points " + std::to_string(mainDataBegin) +
                    " bytes back into main data the stream does not hold");
    const std::size_t dataStart = slotStart - mainDataBegin;
    const auto slot = frame.subspan(sideAt + kSideInfoBytes);
    inReservoir_.insert(inReservoir_.end(), slot.begin(), slot.end());
    inMainDataPos_ += slot.size();
    if (dataStart + dataBytes > inMainDataPos_)
        return Fail(where + " has more main data than its frame and reservoir hold");
    const auto dataFrom = inReservoir_.begin() + static_cast<std::ptrdiff_t>(dataStart - inReservoirBase_);
    const std::vector<std::uint8_t> data(dataFrom, dataFrom + static_cast<std::ptrdiff_t>(dataBytes));
    if (inReservoir_.size() > 2 * kInputReservoirKeep) {
        const std::size_t drop = inReservoir_.size() - kInputReservoirKeep;
        inReservoir_.erase(inReservoir_.begin(), inReservoir_.begin() + static_cast<std::ptrdiff_t>(drop));
        inReservoirBase_ += drop;
    }

    // Place it as early as the output reservoir allows, right after the previous frame's data.
    const std::size_t k = placedFrames_;
    const std::size_t slotBegin = k * kMainDataBytes;
    const std::size_t slotEnd = slotBegin + kMainDataBytes;
    const std::size_t earliest = slotBegin > kMaxMainDataBegin ? slotBegin - kMaxMainDataBegin : 0;
    const std::size_t start = std::max(outEnd_, earliest);
    if (start + dataBytes > slotEnd) {
        overflowed_ = true;
        return Fail("bit reservoir overflow at " + where + ": its " + std::to_string(dataBytes) +
                    " bytes of main data do not fit in 104-byte frames; encode at a lower bit rate");
    }
    if (outStream_.size() < slotEnd - outStreamBase_)
        outStream_.resize(slotEnd - outStreamBase_, 0);
    std::copy(data.begin(), data.end(),
              outStream_.begin() + static_cast<std::ptrdiff_t>(start - outStreamBase_));
    outEnd_ = start + dataBytes;

    Pending p{};
    p.headerAndSideInfo[0] = 0xFF;
    p.headerAndSideInfo[1] = 0xF3; // MPEG-2, Layer III, no CRC
    p.headerAndSideInfo[2] = std::uint8_t((kOutputBitrateIndex << 4) | (frame[2] & 0x01)); // no padding
    p.headerAndSideInfo[3] = frame[3];
    std::copy(side, side + kSideInfoBytes, p.headerAndSideInfo.begin() + kHeaderBytes);
    p.headerAndSideInfo[kHeaderBytes] = std::uint8_t(slotBegin - start);
    pending_.push_back(p);
    ++placedFrames_;
    ++inputFrames_;
    EmitReadyFrames(false);
    return true;
}

void Mp3FrameRepacker::EmitReadyFrames(bool all)
{
    // No later frame can put data before this point, so slots that end there are final.
    const std::size_t nextSlot = placedFrames_ * kMainDataBytes;
    const std::size_t futureData =
        std::max(outEnd_, nextSlot > kMaxMainDataBegin ? nextSlot - kMaxMainDataBegin : 0);
    while (!pending_.empty() && (all || outStreamBase_ + kMainDataBytes <= futureData)) {
        Frame f{};
        std::copy(pending_.front().headerAndSideInfo.begin(), pending_.front().headerAndSideInfo.end(),
                  f.begin());
        if (outStream_.size() < kMainDataBytes)
            outStream_.resize(kMainDataBytes, 0);
        std::copy(outStream_.begin(), outStream_.begin() + kMainDataBytes,
                  f.begin() + kHeaderBytes + kSideInfoBytes);
        outStream_.erase(outStream_.begin(), outStream_.begin() + kMainDataBytes);
        outStreamBase_ += kMainDataBytes;
        pending_.pop_front();
        ready_.push_back(f);
    }
}

bool Mp3FrameRepacker::Finish()
{
    if (!error_.empty())
        return false;
    if (!input_.empty())
        return Fail("the stream ends inside a frame (" + std::to_string(input_.size()) + " bytes left over)");
    EmitReadyFrames(true);
    return true;
}

std::vector<Mp3FrameRepacker::Frame> Mp3FrameRepacker::TakeFrames()
{
    std::vector<Frame> out;
    out.swap(ready_);
    return out;
}

} // namespace zqxauthor
