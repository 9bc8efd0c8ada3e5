#include "Id3Chapters.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>

namespace zqxauthor {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kHeaderBytes = 10;
constexpr std::size_t kFooterBytes = 10;
constexpr std::size_t kFrameHeaderBytes = 10;
// A CHAP's start, end, start offset and end offset, after its element id.
constexpr std::size_t kChapterTimesBytes = 16;
constexpr std::uint8_t kFlagUnsynchronised = 0x80;
constexpr std::uint8_t kFlagExtendedHeader = 0x40;
constexpr std::uint8_t kFlagFooter = 0x10;
constexpr std::uint8_t kTocTopLevel = 0x02;
// Frame format flags whose frames cannot be read as they lie: compression,
// encryption and grouping in 2.3; those, unsynchronisation and a data length
// indicator in 2.4.
constexpr std::uint16_t kUnreadableV3 = 0x00E0;
constexpr std::uint16_t kUnreadableV4 = 0x004F;

enum TextEncoding : std::uint8_t { kLatin1 = 0, kUtf16WithBom = 1, kUtf16Be = 2, kUtf8 = 3 };
constexpr char32_t kReplacement = 0xFFFD;

std::uint32_t Be32(const std::uint8_t* p)
{
    return std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 | p[3];
}

std::uint32_t Syncsafe(const std::uint8_t* p)
{
    return std::uint32_t(p[0] & 0x7F) << 21 | std::uint32_t(p[1] & 0x7F) << 14 |
           std::uint32_t(p[2] & 0x7F) << 7 | (p[3] & 0x7F);
}

void AppendUtf8(std::string& out, char32_t c)
{
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | c >> 6);
        out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | c >> 12);
        out += char(0x80 | (c >> 6 & 0x3F));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | c >> 18);
        out += char(0x80 | (c >> 12 & 0x3F));
        out += char(0x80 | (c >> 6 & 0x3F));
        out += char(0x80 | (c & 0x3F));
    }
}

// One UTF-8 sequence at the front of b, taken off; a malformed one gives the
// replacement character and takes one byte.
char32_t TakeUtf8(Bytes& b)
{
    const std::uint8_t lead = b[0];
    const std::size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
    char32_t c = length == 1 ? lead : length == 2 ? lead & 0x1F : length == 3 ? lead & 0x0F : lead & 0x07;
    bool valid = length > 0 && length <= b.size();
    for (std::size_t i = 1; valid && i < length; ++i) {
        valid = (b[i] & 0xC0) == 0x80;
        c = c << 6 | (b[i] & 0x3F);
    }
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    valid = valid && c >= kLeast[length] && c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
    b = b.subspan(valid ? length : 1);
    return valid ? c : kReplacement;
}

// UTF-16 units up to a zero unit (or the end), as UTF-8.
std::string DecodeUtf16(Bytes b, bool bigEndian)
{
    std::string out;
    const auto unit = [&](std::size_t i) {
        return char16_t(bigEndian ? b[i] << 8 | b[i + 1] : b[i + 1] << 8 | b[i]);
    };
    for (std::size_t i = 0; i + 1 < b.size(); i += 2) {
        const char16_t u = unit(i);
        if (u == 0)
            break;
        const bool high = u >= 0xD800 && u < 0xDC00;
        if (high && i + 3 < b.size() && unit(i + 2) >= 0xDC00 && unit(i + 2) < 0xE000) {
            AppendUtf8(out, 0x10000 + (char32_t(u - 0xD800) << 10) + (unit(i + 2) - 0xDC00));
            i += 2;
        } else {
            AppendUtf8(out, (u >= 0xD800 && u < 0xE000) ? kReplacement : u);
        }
    }
    return out;
}

// A text field in its encoding, up to its terminator, as valid UTF-8.
std::string DecodeText(std::uint8_t encoding, Bytes b)
{
    if (encoding == kUtf16WithBom || encoding == kUtf16Be) {
        bool bigEndian = encoding == kUtf16Be;
        if (encoding == kUtf16WithBom && b.size() >= 2 && (b[0] == 0xFE || b[0] == 0xFF) &&
            b[0] + b[1] == 0x1FD) {
            bigEndian = b[0] == 0xFE;
            b = b.subspan(2);
        }
        return DecodeUtf16(b, bigEndian);
    }
    std::string out;
    while (!b.empty() && b[0] != 0) {
        if (encoding == kUtf8) {
            AppendUtf8(out, TakeUtf8(b));
        } else {
            AppendUtf8(out, b[0]);
            b = b.subspan(1);
        }
    }
    return out;
}

// A NUL-terminated single-byte string at the front of b, taken off with its terminator.
std::string TakeLatin1(Bytes& b)
{
    const auto end = std::find(b.begin(), b.end(), std::uint8_t{0});
    std::string text(b.begin(), end);
    b = b.subspan(std::min(b.size(), std::size_t(end - b.begin()) + 1));
    return text;
}

// Steps over a terminated text field in its encoding (two zero bytes, aligned, for UTF-16).
void SkipText(std::uint8_t encoding, Bytes& b)
{
    if (encoding != kUtf16WithBom && encoding != kUtf16Be) {
        TakeLatin1(b);
        return;
    }
    std::size_t i = 0;
    while (i + 1 < b.size() && (b[i] != 0 || b[i + 1] != 0))
        i += 2;
    b = b.subspan(std::min(b.size(), i + 2));
}

struct Frame {
    std::string_view id;
    Bytes body;
};

// The readable frames of a frame area in order; padding, or a frame that does
// not fit, ends it.
std::vector<Frame> FramesOf(Bytes area, int version)
{
    std::vector<Frame> frames;
    while (area.size() >= kFrameHeaderBytes && area[0] != 0) {
        const std::uint32_t size = version == 4 ? Syncsafe(area.data() + 4) : Be32(area.data() + 4);
        if (size > area.size() - kFrameHeaderBytes)
            break;
        const std::uint16_t flags = std::uint16_t(area[8] << 8 | area[9]);
        if ((flags & (version == 4 ? kUnreadableV4 : kUnreadableV3)) == 0)
            frames.push_back({std::string_view(reinterpret_cast<const char*>(area.data()), 4),
                              area.subspan(kFrameHeaderBytes, size)});
        area = area.subspan(kFrameHeaderBytes + size);
    }
    return frames;
}

// An APIC body's picture bytes: after the encoding, MIME type, picture type and description.
std::vector<std::uint8_t> PictureOf(Bytes body)
{
    if (body.empty())
        return {};
    const std::uint8_t encoding = body[0];
    body = body.subspan(1);
    TakeLatin1(body);
    if (body.empty())
        return {};
    body = body.subspan(1);
    SkipText(encoding, body);
    return {body.begin(), body.end()};
}

// Undoes the 2.3 tag-wide unsynchronisation: a 0x00 after 0xFF was inserted.
std::vector<std::uint8_t> Resynchronised(Bytes area)
{
    std::vector<std::uint8_t> out;
    out.reserve(area.size());
    for (std::size_t i = 0; i < area.size(); ++i)
        if (!(i > 0 && area[i] == 0 && area[i - 1] == 0xFF))
            out.push_back(area[i]);
    return out;
}

struct TagContents {
    std::map<std::string, Id3Chapter> chapters;
    std::vector<std::string> chapterOrder;
    std::map<std::string, std::vector<std::string>> tocs;
    std::string topLevelToc;
};

void AddChapter(Bytes body, int version, TagContents& tag)
{
    std::string id = TakeLatin1(body);
    if (body.size() < kChapterTimesBytes || tag.chapters.count(id))
        return;
    Id3Chapter chapter;
    chapter.startMs = Be32(body.data());
    chapter.endMs = Be32(body.data() + 4);
    for (const Frame& sub : FramesOf(body.subspan(kChapterTimesBytes), version)) {
        if (sub.id == "TIT2" && !sub.body.empty())
            chapter.title = DecodeText(sub.body[0], sub.body.subspan(1));
        else if (sub.id == "APIC" && chapter.picture.empty())
            chapter.picture = PictureOf(sub.body);
    }
    tag.chapterOrder.push_back(id);
    tag.chapters.emplace(std::move(id), std::move(chapter));
}

void AddToc(Bytes body, TagContents& tag)
{
    std::string id = TakeLatin1(body);
    if (body.size() < 2 || tag.tocs.count(id))
        return;
    const bool topLevel = body[0] & kTocTopLevel;
    const unsigned count = body[1];
    body = body.subspan(2);
    std::vector<std::string> entries;
    for (unsigned i = 0; i < count && !body.empty(); ++i)
        entries.push_back(TakeLatin1(body));
    if (topLevel && tag.topLevelToc.empty())
        tag.topLevelToc = id;
    tag.tocs.emplace(std::move(id), std::move(entries));
}

// The chapters a table lists, depth first into the tables it lists, as deep
// as a real book nests them; each table and chapter is taken once, so a table
// listing itself ends.
constexpr int kMaxTocDepth = 8;

struct Collected {
    std::set<std::string> tocs;
    std::set<std::string> chapters;
    std::vector<Id3Chapter> list;
};

void CollectListed(const std::string& tocId, int depth, TagContents& tag, Collected& out)
{
    const auto toc = tag.tocs.find(tocId);
    if (depth > kMaxTocDepth || toc == tag.tocs.end() || !out.tocs.insert(tocId).second)
        return;
    for (const std::string& entry : toc->second) {
        if (const auto chapter = tag.chapters.find(entry); chapter != tag.chapters.end()) {
            if (out.chapters.insert(entry).second)
                out.list.push_back(std::move(chapter->second));
        } else {
            CollectListed(entry, depth + 1, tag, out);
        }
    }
}

} // namespace

std::size_t Id3TagSize(std::span<const std::uint8_t> head)
{
    if (head.size() < kHeaderBytes || head[0] != 'I' || head[1] != 'D' || head[2] != '3' ||
        (head[3] != 3 && head[3] != 4) || ((head[6] | head[7] | head[8] | head[9]) & 0x80))
        return 0;
    const bool footer = head[3] == 4 && (head[5] & kFlagFooter);
    return kHeaderBytes + Syncsafe(head.data() + 6) + (footer ? kFooterBytes : 0);
}

std::vector<Id3Chapter> ReadId3Chapters(std::span<const std::uint8_t> bytes)
{
    if (Id3TagSize(bytes) == 0)
        return {};
    const int version = bytes[3];
    const std::uint8_t flags = bytes[5];
    Bytes area =
        bytes.subspan(kHeaderBytes, std::min<std::size_t>(bytes.size() - kHeaderBytes, Syncsafe(&bytes[6])));
    // In 2.4 each unsynchronised frame says so and is skipped; in 2.3 the whole tag is.
    std::vector<std::uint8_t> resynchronised;
    if (version == 3 && (flags & kFlagUnsynchronised)) {
        resynchronised = Resynchronised(area);
        area = resynchronised;
    }
    if (flags & kFlagExtendedHeader) {
        if (area.size() < 4)
            return {};
        // 2.3 counts the size field out, 2.4 in.
        const std::size_t extended =
            version == 4 ? Syncsafe(area.data()) : std::size_t(Be32(area.data())) + 4;
        if (extended > area.size())
            return {};
        area = area.subspan(extended);
    }
    TagContents tag;
    for (const Frame& frame : FramesOf(area, version)) {
        if (frame.id == "CHAP")
            AddChapter(frame.body, version, tag);
        else if (frame.id == "CTOC")
            AddToc(frame.body, tag);
    }
    std::vector<Id3Chapter> chapters;
    if (tag.topLevelToc.empty()) {
        for (const std::string& id : tag.chapterOrder)
            chapters.push_back(std::move(tag.chapters[id]));
        return chapters;
    }
    Collected listed;
    CollectListed(tag.topLevelToc, 0, tag, listed);
    return std::move(listed.list);
}

} // namespace zqxauthor
