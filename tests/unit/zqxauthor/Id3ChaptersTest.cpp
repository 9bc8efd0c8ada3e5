// An ID3v2 tag's chapters read from its own frames: the table of contents
// decides which chapters and in what order, titles come in every text
// encoding, pictures out of CHAP frames; damage ends the reading safely.
#include "zqxauthor/Id3Chapters.h"
#include "zqxauthor/BookPlanner.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using zqxauthor::Id3Chapter;
using zqxauthor::ReadId3Chapters;

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes Text(const std::string& s, bool terminated = true)
{
    Bytes b(s.begin(), s.end());
    if (terminated)
        b.push_back(0);
    return b;
}

Bytes Be32(std::uint32_t v, bool syncsafe = false)
{
    if (syncsafe)
        return {std::uint8_t(v >> 21 & 0x7F), std::uint8_t(v >> 14 & 0x7F), std::uint8_t(v >> 7 & 0x7F),
                std::uint8_t(v & 0x7F)};
    return {std::uint8_t(v >> 24), std::uint8_t(v >> 16), std::uint8_t(v >> 8), std::uint8_t(v)};
}

Bytes Frame(int version, const std::string& id, const Bytes& body, std::uint16_t flags = 0)
{
    return Text(id, false) + Be32(std::uint32_t(body.size()), version == 4) +
           Bytes{std::uint8_t(flags >> 8), std::uint8_t(flags)} + body;
}

Bytes Chap(int version, const std::string& id, std::uint32_t start, std::uint32_t end, const Bytes& subframes)
{
    return Frame(version, "CHAP", Text(id) + Be32(start) + Be32(end) + Be32(~0u) + Be32(~0u) + subframes);
}

Bytes Ctoc(int version, const std::string& id, bool topLevel, const std::vector<std::string>& entries)
{
    Bytes body = Text(id) + Bytes{std::uint8_t(topLevel ? 3 : 1), std::uint8_t(entries.size())};
    for (const auto& e : entries)
        body = body + Text(e);
    return Frame(version, "CTOC", body);
}

Bytes Tag(int version, const Bytes& frames, std::uint8_t flags = 0)
{
    return Text("ID3", false) + Bytes{std::uint8_t(version), 0, flags} +
           Be32(std::uint32_t(frames.size()), true) + frames;
}

const Bytes kPng = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 1, 2, 3};

std::vector<std::string> Titles(const std::vector<Id3Chapter>& chapters)
{
    std::vector<std::string> titles;
    for (const auto& c : chapters)
        titles.push_back(c.title);
    return titles;
}

} // namespace

TEST(Id3Chapters, TheTableOfContentsChoosesAndOrdersAndPicturesComeAlong)
{
    const Bytes utf16Title = Bytes{1, 0xFF, 0xFE, 'T', 0, 'w', 0, 0xF8, 0, 0, 0}; // "Twø"
    const Bytes apic = Bytes{3} + Text("image/png") + Bytes{3} + Text("a cover") + kPng;
    const Bytes frames =
        Chap(4, "c1", 0, 1000, Frame(4, "TIT2", Bytes{0} + Text("One")) + Frame(4, "APIC", apic)) +
        Chap(4, "c2", 1000, 2000, Frame(4, "TIT2", utf16Title)) +
        Chap(4, "c3", 2000, 3000, Frame(4, "TIT2", Bytes{3} + Text("Dr\xC3\xA9\xFF"))) +
        Chap(4, "left-out", 3000, 4000, {}) + Ctoc(4, "part", false, {"c3", "part"}) +
        Ctoc(4, "toc", true, {"c2", "c1", "part", "c1", "toc"});
    const auto chapters = ReadId3Chapters(Tag(4, frames));
    EXPECT_EQ(Titles(chapters), (std::vector<std::string>{"Tw\xC3\xB8", "One", "Dr\xC3\xA9\xEF\xBF\xBD"}));
    ASSERT_EQ(chapters.size(), 3u);
    EXPECT_EQ(chapters[0].startMs, 1000u);
    EXPECT_EQ(chapters[1].endMs, 1000u);
    EXPECT_EQ(chapters[1].picture, kPng);
    EXPECT_TRUE(chapters[0].picture.empty());

    // Without a top-level table every chapter counts, in the tag's order.
    const Bytes untabled = Chap(3, "b", 500, 900, {}) + Chap(3, "a", 0, 500, {});
    EXPECT_EQ(ReadId3Chapters(Tag(3, untabled)).size(), 2u);
    EXPECT_EQ(ReadId3Chapters(Tag(3, untabled))[0].startMs, 500u);
}

TEST(Id3Chapters, UnreadableFramesAreSkippedAndDamageKeepsWhatCameBefore)
{
    // A compressed CHAP (2.3 flag) is skipped, the next one read.
    const Bytes compressed = Frame(3, "CHAP", Text("x") + Be32(0) + Be32(1) + Be32(0) + Be32(0), 0x0080);
    const Bytes good = Chap(3, "g", 7, 9, Frame(3, "TIT2", Bytes{0} + Text("Good")));
    Bytes tag = Tag(3, compressed + good);
    ASSERT_EQ(Titles(ReadId3Chapters(tag)), (std::vector<std::string>{"Good"}));

    // 2.3 unsynchronisation: a 0x00 follows every 0xFF of the stored tag.
    Bytes unsynced;
    for (std::uint8_t b : Chap(3, "u", 0, 5, Frame(3, "TIT2", Bytes{0, 'A', 0xFF}))) {
        unsynced.push_back(b);
        if (b == 0xFF)
            unsynced.push_back(0);
    }
    const auto resynced = ReadId3Chapters(Tag(3, unsynced, 0x80));
    ASSERT_EQ(resynced.size(), 1u);
    EXPECT_EQ(resynced[0].title, "A\xC3\xBF");

    // Cut anywhere: never more than the whole tag holds, never a crash.
    tag = Tag(3, good + good + Chap(3, "h", 10, 20, {}));
    for (std::size_t n = 0; n < tag.size(); ++n)
        EXPECT_LE(ReadId3Chapters(Bytes(tag.begin(), tag.begin() + std::ptrdiff_t(n))).size(), 1u) << n;
    EXPECT_EQ(ReadId3Chapters(tag).size(), 2u);

    // Not a 2.3 or 2.4 tag at all.
    for (const Bytes& other : {Text("RIFF....WAVE"), Tag(2, good), Tag(3, good) + Bytes(4, 0)}) {
        Bytes b = other;
        if (b.size() > 6 && b[0] == 'I' && b[3] == 3)
            b[6] = 0x80; // a size byte that is not syncsafe
        EXPECT_TRUE(ReadId3Chapters(b).empty());
    }
}

TEST(Id3Chapters, TagSizeCountsTheHeaderAndA24Footer)
{
    EXPECT_EQ(zqxauthor::Id3TagSize(Tag(3, Bytes(300, 0))), 310u);
    Bytes withFooter = Tag(4, Bytes(300, 0), 0x10);
    EXPECT_EQ(zqxauthor::Id3TagSize(withFooter), 320u);
    EXPECT_EQ(zqxauthor::Id3TagSize(Bytes{'I', 'D', '3'}), 0u);
}

TEST(Id3Chapters, ChapterPicturesFollowTheCoverOnTheProgramsTimeLine)
{
    const Bytes jpeg = {0xFF, 0xD8, 0xFF, 0xE0};
    zqxauthor::BookFile first, second;
    first.path = "part1.mp3";
    first.durationMs = 6000;
    first.cover = kPng;
    first.chapterPictures = {{first.path, 0, jpeg}};
    second.path = "part2.mp3";
    second.durationMs = 4000;
    second.chapterPictures = {{second.path, 1500, kPng}};
    const auto plan = zqxauthor::PlanBook({first, second}, true, "Book", "/nonexistent");
    ASSERT_EQ(plan.pictures.size(), 3u);
    EXPECT_EQ(plan.pictures[0].bytes, kPng); // the cover first
    EXPECT_EQ(plan.pictures[1].startMs, 0u);
    EXPECT_EQ(plan.pictures[1].bytes, jpeg);
    EXPECT_EQ(plan.pictures[2].startMs, 7500u);
}
