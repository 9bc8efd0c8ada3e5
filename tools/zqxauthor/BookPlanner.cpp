#include "BookPlanner.h"

#include "AudioFileReader.h"
#include "CueSheet.h"
#include "Id3Chapters.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>

namespace fs = std::filesystem;

namespace zqxauthor {
namespace {

constexpr std::array<std::string_view, 14> kAudioExtensions = {".m4b", ".m4a",  ".aac",  ".mp4",  ".mp3",
                                                               ".ogg", ".oga",  ".opus", ".flac", ".wav",
                                                               ".mka", ".webm", ".wma",  ".aiff"};
constexpr std::array<std::string_view, 2> kCoverStems = {"cover", "folder"};
constexpr std::array<std::string_view, 3> kPictureExtensions = {".jpg", ".jpeg", ".png"};

std::string LowerExtension(const fs::path& p)
{
    std::string ext = p.extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    return ext;
}

std::string LowerStem(const fs::path& p)
{
    std::string stem = p.stem().string();
    std::transform(stem.begin(), stem.end(), stem.begin(), [](unsigned char c) { return std::tolower(c); });
    return stem;
}

template <std::size_t N> bool Contains(const std::array<std::string_view, N>& list, const std::string& item)
{
    return std::find(list.begin(), list.end(), item) != list.end();
}

std::string ReadText(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The cue sheet meant for an audio file: "book.cue" beside "book.m4b", else
// the one sheet in the folder whose FILE names it.
std::optional<CueSheet> CueSheetFor(const fs::path& audio)
{
    fs::path same = audio;
    same.replace_extension(".cue");
    std::error_code ec;
    if (fs::is_regular_file(same, ec))
        return ParseCueSheet(ReadText(same), audio.filename().string());
    for (const auto& entry :
         fs::directory_iterator(audio.parent_path().empty() ? "." : audio.parent_path(), ec)) {
        if (LowerExtension(entry.path()) != ".cue")
            continue;
        const std::string text = ReadText(entry.path());
        if (text.find(audio.filename().string()) != std::string::npos)
            return ParseCueSheet(text, audio.filename().string());
    }
    return std::nullopt;
}

// The disc a file of a nested book is on when its tags do not say: the number
// in its subfolder's name ("CD1", "Disc 2").
std::uint32_t FolderDisc(const fs::path& file, const fs::path& root)
{
    const fs::path folder = file.parent_path();
    if (folder == root)
        return 0;
    const std::string name = folder.filename().string();
    const auto digit =
        std::find_if(name.begin(), name.end(), [](unsigned char c) { return std::isdigit(c); });
    std::uint32_t n = 0;
    for (auto it = digit; it != name.end() && std::isdigit(static_cast<unsigned char>(*it)) && n < 100000;
         ++it)
        n = n * 10 + std::uint32_t(*it - '0');
    return n;
}

std::optional<std::vector<std::uint8_t>> CoverBeside(const fs::path& folder)
{
    std::vector<fs::path> found;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(folder, ec))
        if (Contains(kCoverStems, LowerStem(entry.path())) &&
            Contains(kPictureExtensions, LowerExtension(entry.path())))
            found.push_back(entry.path());
    std::sort(found.begin(), found.end()); // cover.* before folder.*
    for (const fs::path& p : found) {
        const std::string bytes = ReadText(p);
        std::vector<std::uint8_t> picture(bytes.begin(), bytes.end());
        if (IsPicture(picture))
            return picture;
    }
    return std::nullopt;
}

// An ID3 tag larger than this is not read for chapters (FFmpeg's still count).
constexpr std::size_t kMaxId3TagBytes = 64u << 20;

// An ID3v2 tag's own chapters, which say more than FFmpeg passes on: the ones
// its table of contents lists, and their pictures. Nothing changes when the
// file has no tag or the tag no chapters.
void ReadTagChapters(const std::string& path, BookFile& out)
{
    std::ifstream in(path, std::ios::binary);
    std::vector<std::uint8_t> tag(10);
    if (!in.read(reinterpret_cast<char*>(tag.data()), std::streamsize(tag.size())))
        return;
    const std::size_t size = Id3TagSize(tag);
    if (size == 0 || size > kMaxId3TagBytes)
        return;
    tag.resize(size);
    in.read(reinterpret_cast<char*>(tag.data() + 10), std::streamsize(size - 10));
    tag.resize(10 + std::size_t(in.gcount()));
    std::vector<Id3Chapter> chapters = ReadId3Chapters(tag);
    if (chapters.empty())
        return;
    out.chapters.clear();
    for (Id3Chapter& c : chapters) {
        out.chapters.push_back({c.startMs, c.endMs > c.startMs ? std::int64_t(c.endMs) : -1, c.title});
        if (IsPicture(c.picture))
            out.chapterPictures.push_back({path, c.startMs, std::move(c.picture)});
    }
}

// The book's cover: the first embedded JPEG or PNG, else one beside the files.
std::optional<PictureInput> CoverOf(const std::vector<BookFile>& files, const std::string& pictureFolder,
                                    std::vector<std::string>& warnings)
{
    for (const BookFile& f : files) {
        if (f.cover.empty())
            continue;
        if (IsPicture(f.cover))
            return PictureInput{f.path, 0, f.cover};
        warnings.push_back("'" + f.path + "': the embedded cover is neither JPEG nor PNG; not used");
    }
    if (auto cover = CoverBeside(pictureFolder))
        return PictureInput{pictureFolder, 0, std::move(*cover)};
    return std::nullopt;
}

} // namespace

bool IsPicture(const std::vector<std::uint8_t>& b)
{
    const bool jpeg = b.size() >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF;
    const bool png = b.size() >= 8 && b[0] == 0x89 && b[1] == 'P' && b[2] == 'N' && b[3] == 'G';
    return jpeg || png;
}

std::string CutUtf8(std::string text, std::size_t bytes)
{
    if (text.size() <= bytes)
        return text;
    while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xC0) == 0x80)
        --bytes;
    text.resize(bytes);
    return text;
}

std::string NameForFile(const std::string& text, const std::string& fallback)
{
    // A file name may be 255 bytes.
    constexpr std::size_t kMaxNameBytes = 200;
    std::string name;
    for (const char c : text)
        name += (c == '/' || static_cast<unsigned char>(c) < 0x20 || c == 0x7F) ? ' ' : c;
    const auto first = name.find_first_not_of(". \t");
    name = first == std::string::npos ? std::string() : name.substr(first);
    name = CutUtf8(name, kMaxNameBytes);
    while (!name.empty() && (name.back() == ' ' || name.back() == '.'))
        name.pop_back();
    return name.empty() ? fallback : name;
}

bool IsAudioFileName(const std::string& path)
{
    return Contains(kAudioExtensions, LowerExtension(path));
}

bool ProbeBookFile(const std::string& path, BookFile& out, std::string& error)
{
    AudioFileReader reader;
    if (!fs::exists(path)) {
        error = "input file '" + path + "' does not exist";
        return false;
    }
    if (!reader.Open(path)) {
        error = reader.Error();
        return false;
    }
    out.path = path;
    out.tags = reader.Tags();
    out.chapters = reader.Chapters();
    out.durationMs = reader.DurationMs();
    out.cover = reader.Cover();
    ReadTagChapters(path, out);
    if (auto cue = CueSheetFor(path)) {
        out.chapters = std::move(cue->chapters);
        out.chapterPictures.clear();
        out.tags.insert(out.tags.end(), cue->tags.begin(), cue->tags.end());
        for (const std::string& w : cue->warnings)
            out.warnings.push_back("'" + path + "': " + w);
    }
    return true;
}

bool ProbeBookFolder(const std::string& folder, std::vector<BookFile>& out, std::string& error)
{
    std::error_code ec;
    std::vector<fs::path> paths;
    for (auto it =
             fs::recursive_directory_iterator(folder, fs::directory_options::skip_permission_denied, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec))
        if (it->is_regular_file() && IsAudioFileName(it->path().string()))
            paths.push_back(it->path());
    if (ec) {
        error = "cannot read folder '" + folder + "': " + ec.message();
        return false;
    }
    if (paths.empty()) {
        error = "folder '" + folder + "' holds no audio files";
        return false;
    }
    struct Keyed {
        std::uint32_t disc, track;
        std::string relative;
        BookFile file;
    };
    std::vector<Keyed> keyed;
    for (const fs::path& p : paths) {
        Keyed k{0, 0, fs::relative(p, folder).string(), {}};
        if (!ProbeBookFile(p.string(), k.file, error))
            return false;
        k.disc = TagNumber(k.file.tags, "disc");
        if (k.disc == 0)
            k.disc = FolderDisc(p, folder);
        k.track = TagNumber(k.file.tags, "track");
        keyed.push_back(std::move(k));
    }
    std::sort(keyed.begin(), keyed.end(), [](const Keyed& a, const Keyed& b) {
        if (a.disc != b.disc)
            return a.disc < b.disc;
        if (a.track != b.track)
            return a.track < b.track;
        return NaturalLess(a.relative, b.relative);
    });
    for (Keyed& k : keyed)
        out.push_back(std::move(k.file));
    return true;
}

BookPlan PlanBook(const std::vector<BookFile>& files, bool useChapters, const std::string& fallbackTitle,
                  const std::string& pictureFolder)
{
    BookPlan plan;
    if (files.empty())
        return plan;
    plan.fields = MapTags(files.front().tags, fallbackTitle);
    for (const BookFile& f : files) {
        plan.warnings.insert(plan.warnings.end(), f.warnings.begin(), f.warnings.end());
        std::string title = FindTag(f.tags, {"title"});
        if (title.empty())
            title = fs::path(f.path).stem().string();
        SectionInput section{f.path, title, {}};
        if (useChapters && !f.chapters.empty()) {
            ChapterPlan chapters = MapChapters(f.chapters, f.durationMs, title);
            for (const std::string& w : chapters.warnings)
                plan.warnings.push_back("'" + f.path + "': " + w);
            section.marks = std::move(chapters.sections);
        }
        plan.sections.push_back(std::move(section));
    }
    if (auto cover = CoverOf(files, pictureFolder, plan.warnings))
        plan.pictures.push_back(std::move(*cover));
    std::uint64_t fileStartMs = 0;
    for (const BookFile& f : files) {
        for (const PictureInput& p : f.chapterPictures)
            plan.pictures.push_back(
                {p.path, std::uint32_t(std::min<std::uint64_t>(fileStartMs + p.startMs, UINT32_MAX)),
                 p.bytes});
        fileStartMs += std::uint64_t(std::max<std::int64_t>(f.durationMs, 0));
    }
    return plan;
}

} // namespace zqxauthor
