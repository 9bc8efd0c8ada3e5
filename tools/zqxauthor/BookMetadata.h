#pragma once
// How a listener's audio book becomes a program's fields and sections: pure
// functions of the tags and chapters a file carries, with no I/O, so they can
// be fuzzed and tested on their own.

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace zqxauthor {

struct Tag {
    std::string key; // lower case
    std::string value;
};
using TagList = std::vector<Tag>;

// A chapter as a container or cue sheet states it, in ms from the file's start.
struct RawChapter {
    std::int64_t startMs = 0;
    std::int64_t endMs = -1; // -1: not stated
    std::string title;
};

// A section's start within one input file.
struct SectionMark {
    std::uint32_t startMs = 0;
    std::string title;
};

struct ProgramFields {
    std::string title, author, narrator, provider, description;
};

// The first non-empty value among the keys, in the order given; empty if none.
std::string FindTag(const TagList& tags, std::initializer_list<std::string_view> keys);
// The leading number of a "3" or "3/12" tag; 0 when there is none.
std::uint32_t TagNumber(const TagList& tags, std::string_view key);

// title: album, else title, else fallbackTitle; author: album artist, else
// artist; narrator: narrator or performer, else composer; provider: publisher,
// else copyright; description: comment, else description.
ProgramFields MapTags(const TagList& tags, const std::string& fallbackTitle);

struct ChapterPlan {
    std::vector<SectionMark> sections; // at least one, the first at 0, starts rising
    std::vector<std::string> warnings;
};

// Chapters to sections of a file durationMs long (0: not known). Chapters out
// of order are sorted; chapters starting past the end, or empty (ending where
// they start), are dropped; overlaps end where the next chapter starts; two at
// one start keep the first. Each change is one warning. The first section
// starts at 0 so no audio comes before it; an untitled chapter is "Chapter N".
// Without chapters the file is one section titled fileTitle.
ChapterPlan MapChapters(std::vector<RawChapter> chapters, std::int64_t durationMs,
                        const std::string& fileTitle);

// "2" before "10": digit runs compare as numbers, letters without case.
bool NaturalLess(std::string_view a, std::string_view b);

} // namespace zqxauthor
