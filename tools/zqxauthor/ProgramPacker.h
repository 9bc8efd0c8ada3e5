#pragma once

#include "BookMetadata.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zqxauthor {

// One input file: one section, or one per mark (its chapters).
struct SectionInput {
    std::string path;
    std::string title; // empty: the file name without its extension
    // Sections within the file, rising from 0; empty: the file is one section.
    // Marks past the file's decoded end are dropped with a warning.
    std::vector<SectionMark> marks;
};

// A cover picture and the program time (ms) from which it shows.
struct PictureInput {
    std::string path;
    std::uint32_t startMs = 0;
    std::vector<std::uint8_t> bytes; // a picture taken from an input; path then only names it
};

struct PackRequest {
    int fileType = 0;
    std::uint32_t sampleRate = 0; // 0: the type's default
    std::uint32_t channels = 0;   // 0: mono, or the first input's (at most 2) for types 3 and 5
    std::uint32_t bitrate = 0;    // Opus only, bit/s; 0: default
    std::vector<SectionInput> sections;
    std::vector<PictureInput> pictures;
    std::string programId; // empty: the output's file name without extension
    std::string title;     // empty: the first section's title
    std::string author, narrator, provider, description;
    std::optional<std::uint32_t> timeOffsetMs;
    // When set, only [start, end) ms of the joined inputs goes into the file,
    // which is marked as that part of the longer program; section and picture
    // times are then counted from the span's start.
    std::optional<std::pair<std::uint32_t, std::uint32_t>> spanMs;
    std::string output;
};

// Makes one program file from ordinary audio files: reads and converts each
// input, encodes it for the file type and writes packets, sections, pictures
// and metadata through the SDK's writer. The output appears only when all of
// it succeeded.
class ProgramPacker {
public:
    // Called now and then with the share of the input read so far, 0 to 1.
    using Progress = std::function<void(double)>;

    bool Pack(const PackRequest& request, const Progress& progress = {});
    const std::string& Error() const { return error_; }
    // What was put right on the way (chapters past the decoded end).
    const std::vector<std::string>& Warnings() const { return warnings_; }

    // Samples of the program written (at the file's rate), for reports.
    std::uint64_t SamplesWritten() const { return samplesWritten_; }
    std::uint32_t PacketsWritten() const { return packetsWritten_; }

private:
    enum class Outcome { Done, Failed, Mp3ReservoirOverflow };
    Outcome PackOnce(const PackRequest& request, bool mp3ConstantRate, const Progress& progress);
    void AddSectionStarts(const SectionInput& input, const std::string& fileTitle, std::uint64_t begin,
                          std::uint64_t end, std::uint32_t rate,
                          std::vector<std::pair<std::uint64_t, const std::string*>>& starts);
    bool Fail(std::string message);

    std::string error_;
    std::vector<std::string> warnings_;
    std::uint64_t samplesWritten_ = 0;
    std::uint32_t packetsWritten_ = 0;
};

} // namespace zqxauthor
