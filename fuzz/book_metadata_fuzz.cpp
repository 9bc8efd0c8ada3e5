// Fuzz target over the mapping of a book's tags, chapters and cue sheet to a
// program's fields and sections. The input is text: the first line the
// file's length in ms, then "key=value" tag lines and "@start,end,title"
// chapter lines; after a line "CUE", a cue sheet. Besides crashes and
// sanitizer reports it traps on a broken promise of the mapping.

#include "../tools/zqxauthor/BookMetadata.h"
#include "../tools/zqxauthor/CueSheet.h"

#include <charconv>
#include <cstdint>
#include <sstream>
#include <string>

namespace {

std::int64_t Number(const std::string& text)
{
    std::int64_t n = 0;
    std::from_chars(text.data(), text.data() + text.size(), n);
    return n;
}

void CheckPlan(const zqxauthor::ChapterPlan& plan, std::int64_t durationMs)
{
    if (plan.sections.empty() || plan.sections.front().startMs != 0)
        __builtin_trap();
    for (std::size_t i = 1; i < plan.sections.size(); ++i)
        if (plan.sections[i].startMs <= plan.sections[i - 1].startMs ||
            (durationMs > 0 && plan.sections[i].startMs >= durationMs) || plan.sections[i].title.empty())
            __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::istringstream in(text);
    std::string line;
    std::getline(in, line);
    const std::int64_t durationMs = Number(line);
    zqxauthor::TagList tags;
    std::vector<zqxauthor::RawChapter> chapters;
    while (std::getline(in, line) && line != "CUE") {
        if (!line.empty() && line[0] == '@') {
            const auto a = line.find(','), b = line.find(',', a == std::string::npos ? a : a + 1);
            chapters.push_back({Number(line.substr(1, a - 1)),
                                a == std::string::npos ? -1 : Number(line.substr(a + 1, b - a - 1)),
                                b == std::string::npos ? std::string() : line.substr(b + 1)});
        } else if (const auto eq = line.find('='); eq != std::string::npos)
            tags.push_back({line.substr(0, eq), line.substr(eq + 1)});
    }
    const std::string rest = in.eof() ? std::string() : text.substr(std::size_t(in.tellg()));
    const zqxauthor::CueSheet cue = zqxauthor::ParseCueSheet(rest, "book.wav");
    chapters.insert(chapters.end(), cue.chapters.begin(), cue.chapters.end());
    tags.insert(tags.end(), cue.tags.begin(), cue.tags.end());
    const zqxauthor::ProgramFields fields = zqxauthor::MapTags(tags, "file");
    if (fields.title.empty())
        __builtin_trap();
    CheckPlan(zqxauthor::MapChapters(chapters, durationMs, "file"), durationMs);
    zqxauthor::NaturalLess(fields.title, fields.author);
    return 0;
}
