#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

struct sf_private_tag;

namespace zqxauthor {

// Reads an ordinary audio file (WAV, FLAC, Ogg Vorbis/Opus, MP3: whatever
// libsndfile reads) and hands it on as 16-bit interleaved PCM at the rate and
// channel count a file type needs: channels are mixed down (or mono doubled),
// and the rate converted with libsamplerate.
class AudioFileReader {
public:
    // chunk: converted samples; sourceFrames: input frames consumed so far.
    // Returning false stops the conversion (Convert then fails with that sink's reason).
    using Sink = std::function<bool(std::span<const std::int16_t> chunk, std::uint64_t sourceFrames)>;

    AudioFileReader() = default;
    ~AudioFileReader();
    AudioFileReader(const AudioFileReader&) = delete;
    AudioFileReader& operator=(const AudioFileReader&) = delete;

    bool Open(const std::string& path);
    std::uint32_t SourceRate() const { return rate_; }
    std::uint32_t SourceChannels() const { return channels_; }
    std::uint64_t SourceFrames() const { return frames_; }

    // Reads the whole file once, from the start.
    bool Convert(std::uint32_t rate, std::uint32_t channels, const Sink& sink);
    const std::string& Error() const { return error_; }

private:
    bool Fail(std::string message);

    sf_private_tag* file_ = nullptr;
    std::string path_;
    std::uint32_t rate_ = 0;
    std::uint32_t channels_ = 0;
    std::uint64_t frames_ = 0;
    std::string error_;
};

} // namespace zqxauthor
