#pragma once

#include "PacketEncoder.h"

#include <memory>

namespace zqxauthor {

// What a caller may ask of a file type; zero means the type's default.
struct EncoderRequest {
    int fileType = 0;
    std::uint32_t sampleRate = 0;
    std::uint32_t channels = 0;
    std::uint32_t bitrate = 0;    // Opus only, bit/s
    bool mp3ConstantRate = false; // MP3 only: the rate that can never overflow the reservoir
};

// The file types the authoring tools write, with their fixed or default formats.
struct FileTypeInfo {
    int fileType;
    const char* name;
    const char* extension;
    std::uint32_t defaultRate;
    bool fixedRate;
    std::uint32_t maxChannels;
};
inline constexpr FileTypeInfo kFileTypes[] = {
    {1, "IMA ADPCM 8 kHz mono", ".zq", 8000, true, 1},
    {2, "IMA ADPCM 16 kHz mono", ".zq", 16000, true, 1},
    {3, "Opus", ".zqx", 48000, false, 2},
    {4, "MPEG-2 Layer III 22050 Hz mono, 104-byte frames", ".zq", 22050, true, 1},
    {5, "16-bit PCM", ".zq", 22050, false, 2},
};
const FileTypeInfo* FindFileType(int fileType);
// What a book becomes unless told otherwise: Opus speech, mono at the default bit rate.
inline constexpr int kSpeechFileType = 3;
inline constexpr std::uint32_t kSpeechChannels = 1;

// The encoder for a request, or null with `error` saying what is wrong with it.
std::unique_ptr<PacketEncoder> CreatePacketEncoder(const EncoderRequest& request, std::string& error);

} // namespace zqxauthor
