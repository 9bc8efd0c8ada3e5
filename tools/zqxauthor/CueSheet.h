#pragma once

#include "BookMetadata.h"

#include <string>
#include <string_view>
#include <vector>

namespace zqxauthor {

// What a cue sheet says about one audio file: its tracks as chapters, and the
// sheet's own TITLE and PERFORMER as "album" and "album_artist" tags.
struct CueSheet {
    std::vector<RawChapter> chapters;
    TagList tags;
    std::vector<std::string> warnings;
};

// Reads FILE, TRACK, TITLE, PERFORMER and INDEX 01 mm:ss:ff (75 frames a
// second) lines; other commands are skipped. Only the tracks under the FILE
// whose name is audioFileName count (compared without case and folder), or
// every track when the sheet names one file. A line that does not parse is a
// warning, never a failure.
CueSheet ParseCueSheet(std::string_view text, const std::string& audioFileName);

} // namespace zqxauthor
