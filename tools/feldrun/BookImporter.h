#pragma once

#include "zqxauthor/BookPlanner.h"
#include "zqxauthor/PacketEncoderFactory.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace feldrun {

struct ImportOptions {
    int fileType = zqxauthor::kSpeechFileType;
    bool dryRun = false;
    std::string musicFolder;
    // talvoplayer, told of each new program (with talvoreg beside it); empty: nobody is told
    std::string playerPath;
};

// What one import made, or would make.
struct ImportResult {
    std::string programPath;
    std::string programId;
    bool idKept = false; // taken from the program the import replaces
    zqxauthor::ProgramFields fields;
    std::vector<zqxauthor::SectionInput> sections;
    std::vector<std::string> warnings;
};

// One downloaded episode of a subscription: packed with the fields its feed
// gives rather than the file's tags, as Programme/Episode/Episode.zqx.
struct EpisodeInput {
    std::string audioPath;
    zqxauthor::ProgramFields fields; // fields left empty come from the file's tags
    std::string programme;           // the folder under Music
    std::string episode;             // the episode's folder and file name
    std::string programId;
    // The feed's chapter list, in place of the file's own; nullopt: the file's.
    std::optional<std::vector<zqxauthor::RawChapter>> chapters;
    // The episode's picture, JPEG or PNG, in place of the file's cover; empty: the file's.
    std::vector<std::uint8_t> picture;
};

// Brings one book (a file, or a folder of files) into the Music folder as
// Author/Title/Title.zqx, where the player finds it. The program is written
// under a temporary name and renamed into place when complete, so a failure
// leaves the Music folder as it was (folders made for it are removed again).
// Importing a book again replaces its program and keeps its program id, so
// the positions and bookmarks stored under that id carry over.
class BookImporter {
public:
    using Progress = std::function<void(double)>;

    explicit BookImporter(ImportOptions options) : options_(std::move(options)) {}

    bool Import(const std::string& path, ImportResult& result, const Progress& progress = {});
    // As Import, with the layout and fields the episode gives; replaces a
    // program of the same id there.
    bool ImportEpisode(const EpisodeInput& episode, ImportResult& result, const Progress& progress = {});
    const std::string& Error() const { return error_; }

private:
    bool Plan(const std::string& path, ImportResult& result, zqxauthor::BookPlan& plan);
    void PlanEpisode(const EpisodeInput& episode, const zqxauthor::BookFile& file, ImportResult& result,
                     zqxauthor::BookPlan& plan) const;
    // Writes the planned program into place and tells the player of it.
    bool Finish(const zqxauthor::BookPlan& plan, ImportResult& result, const Progress& progress);
    bool Write(const zqxauthor::BookPlan& plan, ImportResult& result, const Progress& progress);
    void RemoveOtherCopies(const ImportResult& result) const;
    // Why a running player could not be told, if it could not.
    std::optional<std::string> TellPlayer(const std::string& programPath) const;
    bool Fail(std::string message);

    ImportOptions options_;
    std::string error_;
};

} // namespace feldrun
