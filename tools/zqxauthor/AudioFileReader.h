#pragma once

#include "BookMetadata.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

struct AVFormatContext;

namespace zqxauthor {

// Reads an ordinary audio file through FFmpeg's libraries (M4B/M4A/AAC, MP3,
// Ogg Vorbis and Opus, FLAC, WAV, Matroska/WebM, WMA, ...) and hands it on as
// 16-bit interleaved PCM at the rate and channel count a file type needs.
// Decoding is gapless: the codec's start-up delay and end padding that the
// container records (AAC priming, MP3 encoder delay, Opus pre-skip) are taken
// off, so the PCM is as long as the recording. Besides the audio it reports
// the container's tags, chapters and attached cover picture.
class AudioFileReader {
public:
    // chunk: converted samples; sourceFrames: input frames decoded so far.
    // Returning false stops the conversion (Convert then fails with that sink's reason).
    using Sink = std::function<bool(std::span<const std::int16_t> chunk, std::uint64_t sourceFrames)>;

    AudioFileReader() = default;
    ~AudioFileReader();
    AudioFileReader(const AudioFileReader&) = delete;
    AudioFileReader& operator=(const AudioFileReader&) = delete;

    bool Open(const std::string& path);
    std::uint32_t SourceRate() const { return rate_; }
    std::uint32_t SourceChannels() const { return channels_; }
    // From the container's duration: an estimate, for progress and chapter checks.
    std::uint64_t SourceFrames() const { return frames_; }
    std::int64_t DurationMs() const { return std::int64_t(frames_ * 1000 / rate_); }

    // Container and stream tags, keys in lower case, the container's first.
    const TagList& Tags() const { return tags_; }
    const std::vector<RawChapter>& Chapters() const { return chapters_; }
    // The embedded cover (as stored: JPEG or PNG for most files); empty when none.
    const std::vector<std::uint8_t>& Cover() const { return cover_; }

    // Decodes the whole file from the start; once per Open.
    bool Convert(std::uint32_t rate, std::uint32_t channels, const Sink& sink);
    const std::string& Error() const { return error_; }

private:
    bool Fail(std::string message);
    bool Fail(const std::string& what, int averror);
    void ReadDescription();

    AVFormatContext* format_ = nullptr;
    int stream_ = -1;
    bool converted_ = false;
    std::string path_;
    std::uint32_t rate_ = 0;
    std::uint32_t channels_ = 0;
    std::uint64_t frames_ = 0;
    TagList tags_;
    std::vector<RawChapter> chapters_;
    std::vector<std::uint8_t> cover_;
    std::string error_;
};

} // namespace zqxauthor
