#pragma once
// Layout constants of the program-file container (sdk/docs/format.md is the
// prose version).  Every number of the format is written here once.

#include <array>
#include <cstddef>
#include <cstdint>

namespace zqx::format {

inline constexpr std::array<uint8_t, 8> kMagic = {'Z', 'Q', 'X', 'P', 'R', 'O', 'G', 0x1A};
// Readers refuse versions above the one they know with ZQX_ERR_NEWER_VERSION.
inline constexpr uint16_t kVersion = 1;

// Header fields (offsets in bytes), followed by its CRC-32 over bytes 0..59.
inline constexpr size_t kHeaderBytes = 64;
inline constexpr size_t kOffVersion = 8;
inline constexpr size_t kOffHeaderBytes = 10;
inline constexpr size_t kOffFileType = 12;
inline constexpr size_t kOffSampleRate = 16;
inline constexpr size_t kOffChannels = 20;
inline constexpr size_t kOffTotalSamples = 24;
inline constexpr size_t kOffLengthMs = 32;
inline constexpr size_t kOffPreSkip = 36;
inline constexpr size_t kOffHeaderCrc = 60;

// Chunk header: tag, CRC-32 of the payload, payload length.
inline constexpr size_t kChunkHeaderBytes = 16;

constexpr uint32_t Tag(char a, char b, char c, char d)
{
    return uint32_t(uint8_t(a)) | uint32_t(uint8_t(b)) << 8 | uint32_t(uint8_t(c)) << 16 |
           uint32_t(uint8_t(d)) << 24;
}
inline constexpr uint32_t kTagMetadata = Tag('M', 'E', 'T', 'A');
inline constexpr uint32_t kTagSections = Tag('S', 'E', 'C', 'T');
inline constexpr uint32_t kTagPictures = Tag('P', 'I', 'C', 'T');
inline constexpr uint32_t kTagIndex = Tag('I', 'N', 'D', 'X');
inline constexpr uint32_t kTagAudio = Tag('A', 'U', 'D', 'I');
// The chunks of a file, in the only order a file may hold them.
inline constexpr std::array<uint32_t, 5> kChunkOrder = {kTagMetadata, kTagSections, kTagPictures, kTagIndex,
                                                        kTagAudio};

// Picture table entry before each picture's bytes: start (u32), kind (u32), byte length (u32).
inline constexpr size_t kPictureEntryBytes = 12;
// Index entry: packet bytes (u16), sample frames delivered (u16), CRC-32 of the packet (u32).
inline constexpr size_t kIndexEntryBytes = 8;
// Metadata strings, in stored order.
inline constexpr size_t kMetadataStringCount = 6;
// Ceiling for any one string or picture, so a damaged length cannot ask for gigabytes.
inline constexpr uint32_t kMaxTextBytes = 1u << 20;
inline constexpr uint32_t kMaxPictureBytes = 16u << 20;

inline constexpr uint32_t kPictureJpeg = 1;
inline constexpr uint32_t kPicturePng = 2;

// Type 4 frames: MPEG-2 Layer III at 22050 Hz holds 576 samples per frame.
inline constexpr uint32_t kMp3FrameSamples = 576;
inline constexpr uint32_t kMp3SampleRate = 22050;
// Opus never decodes more than 120 ms from one packet.
inline constexpr uint32_t kOpusMaxPacketMs = 120;

} // namespace zqx::format
