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
    const std::string& Error() const { return error_; }

private:
    bool Plan(const std::string& path, ImportResult& result, zqxauthor::BookPlan& plan);
    bool Write(const zqxauthor::BookPlan& plan, ImportResult& result, const Progress& progress);
    void RemoveOtherCopies(const ImportResult& result) const;
    // Why a running player could not be told, if it could not.
    std::optional<std::string> TellPlayer(const std::string& programPath) const;
    bool Fail(std::string message);

    ImportOptions options_;
    std::string error_;
};

} // namespace feldrun
