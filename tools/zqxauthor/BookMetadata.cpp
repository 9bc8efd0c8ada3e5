#include "BookMetadata.h"

#include <algorithm>
#include <cctype>
#include <cstdint>

namespace zqxauthor {
namespace {

constexpr std::int64_t kMaxProgramMs = UINT32_MAX;

std::string MsText(std::int64_t ms)
{
    return std::to_string(ms / 1000) + "." + std::to_string(ms % 1000 / 100) + " s";
}

std::string Quoted(const RawChapter& c)
{
    return "chapter '" + c.title + "' at " + MsText(c.startMs);
}

std::string TrimmedTitle(const std::string& text)
{
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

void SortByStart(std::vector<RawChapter>& chapters, std::vector<std::string>& warnings)
{
    const auto earlier = [](const RawChapter& a, const RawChapter& b) {
        return a.startMs < b.startMs;
    };
    if (std::is_sorted(chapters.begin(), chapters.end(), earlier))
        return;
    std::stable_sort(chapters.begin(), chapters.end(), earlier);
    warnings.push_back("chapters are out of order; they are put in order of their starts");
}

// Drops what cannot become a section: chapters past the end, empty ones, a
// second chapter at one start; shortens overlaps.
std::vector<RawChapter> UsableChapters(const std::vector<RawChapter>& chapters, std::int64_t durationMs,
                                       std::vector<std::string>& warnings)
{
    // A program's times are 32-bit ms: a chapter beyond them has no place even when the length is unknown.
    const std::int64_t end = durationMs > 0 ? std::min(durationMs, kMaxProgramMs) : kMaxProgramMs;
    std::vector<RawChapter> kept;
    for (std::size_t i = 0; i < chapters.size(); ++i) {
        const RawChapter& c = chapters[i];
        if (c.startMs >= end) {
            warnings.push_back(Quoted(c) + " starts past the end (" + MsText(end) + "); dropped");
            continue;
        }
        if (c.endMs >= 0 && c.endMs <= c.startMs) {
            warnings.push_back(Quoted(c) + " is empty; dropped");
            continue;
        }
        if (!kept.empty() && kept.back().startMs == c.startMs) {
            warnings.push_back(Quoted(c) + " starts with the one before; dropped");
            continue;
        }
        if (i + 1 < chapters.size() && c.endMs > chapters[i + 1].startMs &&
            chapters[i + 1].startMs > c.startMs)
            warnings.push_back(Quoted(c) + " overlaps the next; it ends where that begins");
        kept.push_back(c);
    }
    return kept;
}

} // namespace

std::string FindTag(const TagList& tags, std::initializer_list<std::string_view> keys)
{
    for (const std::string_view key : keys)
        for (const Tag& t : tags)
            if (t.key == key) {
                if (std::string value = TrimmedTitle(t.value); !value.empty())
                    return value;
            }
    return {};
}

std::uint32_t TagNumber(const TagList& tags, std::string_view key)
{
    const std::string text = FindTag(tags, {key});
    std::uint32_t n = 0;
    for (std::size_t i = 0;
         i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])) && n < 100000; ++i)
        n = n * 10 + std::uint32_t(text[i] - '0');
    return n;
}

ProgramFields MapTags(const TagList& tags, const std::string& fallbackTitle)
{
    ProgramFields f;
    f.title = FindTag(tags, {"album", "title"});
    if (f.title.empty())
        f.title = fallbackTitle;
    f.author = FindTag(tags, {"album_artist", "albumartist", "artist"});
    f.narrator = FindTag(tags, {"narrator", "performer", "composer"});
    f.provider = FindTag(tags, {"publisher", "copyright"});
    f.description = FindTag(tags, {"comment", "description"});
    return f;
}

ChapterPlan MapChapters(std::vector<RawChapter> chapters, std::int64_t durationMs,
                        const std::string& fileTitle)
{
    ChapterPlan plan;
    for (RawChapter& c : chapters)
        if (c.startMs < 0) {
            plan.warnings.push_back(Quoted(c) + " starts before the file; it starts at 0");
            c.startMs = 0;
        }
    SortByStart(chapters, plan.warnings);
    for (const RawChapter& c : UsableChapters(chapters, durationMs, plan.warnings)) {
        std::string title = TrimmedTitle(c.title);
        if (title.empty())
            title = "Chapter " + std::to_string(plan.sections.size() + 1);
        plan.sections.push_back({std::uint32_t(c.startMs), std::move(title)});
    }
    if (plan.sections.empty())
        plan.sections.push_back({0, fileTitle});
    // Audio before the first chapter (a short silence, a title) belongs to it.
    plan.sections.front().startMs = 0;
    return plan;
}

bool NaturalLess(std::string_view a, std::string_view b)
{
    const auto digit = [](char c) {
        return std::isdigit(static_cast<unsigned char>(c)) != 0;
    };
    std::size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (digit(a[i]) && digit(b[j])) {
            // Leading zeros do not count: "02" and "2" are one number.
            while (a[i] == '0' && i + 1 < a.size() && digit(a[i + 1]))
                ++i;
            while (b[j] == '0' && j + 1 < b.size() && digit(b[j + 1]))
                ++j;
            std::size_t ei = i, ej = j;
            while (ei < a.size() && digit(a[ei]))
                ++ei;
            while (ej < b.size() && digit(b[ej]))
                ++ej;
            if (ei - i != ej - j)
                return ei - i < ej - j;
            if (const int c = a.substr(i, ei - i).compare(b.substr(j, ej - j)); c != 0)
                return c < 0;
            i = ei;
            j = ej;
            continue;
        }
        const int ca = std::tolower(static_cast<unsigned char>(a[i]));
        const int cb = std::tolower(static_cast<unsigned char>(b[j]));
        if (ca != cb)
            return ca < cb;
        ++i;
        ++j;
    }
    return a.size() - i < b.size() - j;
}

} // namespace zqxauthor
