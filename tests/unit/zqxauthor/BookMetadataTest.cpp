// The pure mapping from a book's tags, chapters and cue sheet to a program's
// fields and sections: the cases that go wrong in real files.
#include "zqxauthor/BookMetadata.h"
#include "zqxauthor/CueSheet.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace zqxauthor;

namespace {

std::vector<std::uint32_t> Starts(const ChapterPlan& plan)
{
    std::vector<std::uint32_t> starts;
    for (const auto& s : plan.sections)
        starts.push_back(s.startMs);
    return starts;
}

bool Warned(const ChapterPlan& plan, const std::string& text)
{
    return std::any_of(plan.warnings.begin(), plan.warnings.end(),
                       [&](const std::string& w) { return w.find(text) != std::string::npos; });
}

} // namespace

TEST(BookMetadata, TagsFallBackInTheirOrder)
{
    const ProgramFields full = MapTags({{"title", "Part"},
                                        {"artist", "Reader"},
                                        {"album_artist", "Writer"},
                                        {"album", "Book"},
                                        {"composer", "Comp"},
                                        {"performer", "Voice"},
                                        {"copyright", "(c) House"},
                                        {"description", "Long"},
                                        {"comment", "Short"}},
                                       "file");
    EXPECT_EQ(full.title, "Book");
    EXPECT_EQ(full.author, "Writer");
    EXPECT_EQ(full.narrator, "Voice");
    EXPECT_EQ(full.provider, "(c) House");
    EXPECT_EQ(full.description, "Short");
    const ProgramFields sparse = MapTags({{"title", "Part"}, {"album", "  "}, {"composer", "Comp"}}, "file");
    EXPECT_EQ(sparse.title, "Part");
    EXPECT_EQ(sparse.narrator, "Comp");
    EXPECT_EQ(MapTags({}, "file").title, "file");
    EXPECT_EQ(TagNumber({{"track", "07/12"}}, "track"), 7u);
    EXPECT_EQ(TagNumber({{"track", "x"}}, "track"), 0u);
}

TEST(BookMetadata, BrokenChaptersArePutRightOrDroppedWithAWarning)
{
    // Out of order, one past the end, one empty, one overlapping, two at one start.
    const ChapterPlan plan = MapChapters({{5000, 8000, "C"},
                                          {300, 6000, "A"},
                                          {9000, -1, "Late"},
                                          {2000, 2000, "Empty"},
                                          {5000, 7000, "Twin"},
                                          {7000, -1, ""}},
                                         8500, "file");
    EXPECT_EQ(Starts(plan), (std::vector<std::uint32_t>{0, 5000, 7000}));
    EXPECT_EQ(plan.sections[0].title, "A");
    EXPECT_EQ(plan.sections[2].title, "Chapter 3");
    for (const char* w : {"out of order", "'Late' at 9.0 s starts past the end", "'Empty' at 2.0 s is empty",
                          "'A' at 0.3 s overlaps", "'Twin' at 5.0 s starts with the one before"})
        EXPECT_TRUE(Warned(plan, w)) << w;

    const ChapterPlan none = MapChapters({{9000, -1, "Late"}}, 8500, "The File");
    ASSERT_EQ(none.sections.size(), 1u);
    EXPECT_EQ(none.sections[0].title, "The File");
    EXPECT_EQ(MapChapters({{-50, -1, "Neg"}, {100, -1, "B"}}, 0, "f").sections[1].startMs, 100u);
    // Length unknown: starts beyond a program's 32-bit ms still go.
    EXPECT_EQ(
        Starts(MapChapters({{5000, -1, "A"}, {300660008000, -1, "B"}, {300660008001, -1, "C"}}, 0, "f")),
        (std::vector<std::uint32_t>{0}));
}

TEST(BookMetadata, NaturalOrderCountsNumbers)
{
    EXPECT_TRUE(NaturalLess("Part 2.mp3", "Part 10.mp3"));
    EXPECT_FALSE(NaturalLess("Part 10.mp3", "Part 2.mp3"));
    EXPECT_TRUE(NaturalLess("part 02", "Part 3"));
    EXPECT_TRUE(NaturalLess("CD1/z.mp3", "CD2/a.mp3"));
    EXPECT_FALSE(NaturalLess("a", "a"));
    EXPECT_TRUE(NaturalLess("a", "a1"));
}

TEST(CueSheet, TracksOfTheNamedFileAtSeventyFiveFramesASecond)
{
    const char* sheet =
        "REM GENRE Speech\r\n"
        "PERFORMER \"Clara Mendes\"\r\n"
        "TITLE \"Cued\"\r\n"
        "FILE \"one.wav\" WAVE\r\n"
        "  TRACK 01 AUDIO\r\n    TITLE \"A\"\r\n    INDEX 00 00:00:00\r\n    INDEX 01 00:00:00\r\n"
        "  TRACK 02 AUDIO\r\n    TITLE \"B\"\r\n    INDEX 01 01:02:74\r\n"
        "FILE \"two.wav\" WAVE\r\n"
        "  TRACK 03 AUDIO\r\n    TITLE \"C\"\r\n    INDEX 01 00:01:00\r\n"
        "  TRACK 04 AUDIO\r\n    TITLE \"D\"\r\n    INDEX 01 00:99:00\r\n";
    const CueSheet one = ParseCueSheet(sheet, "ONE.wav");
    ASSERT_EQ(one.chapters.size(), 2u);
    EXPECT_EQ(one.chapters[1].title, "B");
    EXPECT_EQ(one.chapters[1].startMs, 62000 + 74 * 1000 / 75);
    EXPECT_EQ(one.tags.size(), 2u);
    const CueSheet two = ParseCueSheet(sheet, "two.wav");
    ASSERT_EQ(two.chapters.size(), 1u);
    EXPECT_EQ(two.chapters[0].title, "C");
    EXPECT_EQ(two.warnings.size(), 2u); // the bad time, and track D without its start
}
