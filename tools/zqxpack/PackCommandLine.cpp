#include "PackCommandLine.h"

#include "zqxauthor/BookPlanner.h"
#include "zqxauthor/PacketEncoderFactory.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>

namespace zqxpack {

namespace fs = std::filesystem;

const char* const kPackUsage =
    "usage: zqxpack [--type N] [-o OUTPUT] [options] INPUT...\n"
    "\n"
    "Makes a program file from ordinary audio files (M4B/M4A, MP3, Ogg Vorbis and Opus,\n"
    "FLAC, WAV, Matroska, WMA); each input becomes one section, or one per chapter, in\n"
    "the order given. A file's tags are the defaults for the program's fields.\n"
    "\n"
    "  -o, --output FILE       the program file to write (.zq; .zqx for type 3; default:\n"
    "                          TITLE.zqx beside the first input, else its name with the\n"
    "                          type's extension; never the input itself)\n"
    "  --type N                1 IMA ADPCM 8 kHz mono, 2 IMA ADPCM 16 kHz mono, 3 Opus,\n"
    "                          4 MP3 (22050 Hz mono, 104-byte frames), 5 16-bit PCM\n"
    "                          (default: 3, mono, at the speech bit rate)\n"
    "  --rate HZ               sample rate for types 3 (8000..48000) and 5\n"
    "  --channels N            1 or 2 for types 3 and 5 (default: the first input's\n"
    "                          with --type, else 1)\n"
    "  --bitrate BPS           Opus bit rate (default 24000 per channel)\n"
    "  --section-title TEXT    title of the next input's section (repeatable; default:\n"
    "                          its title tag, else the file name)\n"
    "  --sections LIST         a text file naming the inputs, one per line, as FILE or\n"
    "                          FILE<TAB>TITLE; relative to the list's folder; # comments\n"
    "  --chapters              each input's chapters (MP4, ID3, Vorbis comment, Matroska,\n"
    "                          or a .cue sheet beside it) become its sections (default)\n"
    "  --no-chapters           each input is one section\n"
    "  --title TEXT            program title (default: the album or title tag, else the\n"
    "                          first section's title)\n"
    "  --author TEXT, --narrator TEXT, --provider TEXT, --description TEXT\n"
    "                          (default: the first input's album artist or artist,\n"
    "                          narrator, performer or composer, publisher or copyright,\n"
    "                          comment or description tags)\n"
    "  --id TEXT               program identifier (default: the output's file name)\n"
    "  --time-offset MS        time shown before the file's own position\n"
    "  --span START:END        keep only START..END ms of the joined inputs and mark the\n"
    "                          file as that part of a longer program\n"
    "  --picture FILE[@MS]     a JPEG or PNG cover shown from MS on (repeatable; the\n"
    "                          first is the cover; default: the embedded cover, or\n"
    "                          cover.* or folder.* beside the first input)\n"
    "  -q, --quiet             no progress bar and no summary\n"
    "  -h, --help              this text\n"
    "  --version               the version of zqxpack\n"
    "\n"
    "Exit status: 0 when the file was written, 1 when packing failed, 2 for a wrong\n"
    "command line.\n";

namespace {

bool ParseNumber(const std::string& text, std::uint32_t& value)
{
    const char* end = text.data() + text.size();
    auto [p, ec] = std::from_chars(text.data(), end, value);
    return ec == std::errc() && p == end && !text.empty();
}

bool ReadSectionList(const std::string& listPath, std::vector<zqxauthor::SectionInput>& sections,
                     std::string& error)
{
    std::ifstream in(listPath);
    if (!in) {
        error = "cannot read section list '" + listPath + "'";
        return false;
    }
    const auto folder = std::filesystem::path(listPath).parent_path();
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty() || line[0] == '#')
            continue;
        zqxauthor::SectionInput s;
        const auto tab = line.find('\t');
        std::filesystem::path file = line.substr(0, tab);
        if (tab != std::string::npos)
            s.title = line.substr(tab + 1);
        s.path = (file.is_absolute() ? file : folder / file).string();
        sections.push_back(std::move(s));
    }
    return true;
}

} // namespace

bool ParsePackCommandLine(const std::vector<std::string>& args, PackCommandLine& out, std::string& error)
{
    auto& r = out.request;
    std::vector<std::string> sectionTitles;
    std::vector<std::string> inputs;
    std::uint32_t type = 0;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&](std::string& v) {
            if (i + 1 >= args.size()) {
                error = "option " + a + " needs a value";
                return false;
            }
            v = args[++i];
            return true;
        };
        auto number = [&](std::uint32_t& n) {
            std::string v;
            if (!value(v))
                return false;
            if (!ParseNumber(v, n)) {
                error = "option " + a + " takes a whole number, not '" + v + "'";
                return false;
            }
            return true;
        };
        std::string v;
        bool ok = true;
        if (a == "-h" || a == "--help")
            out.help = true;
        else if (a == "-q" || a == "--quiet")
            out.quiet = true;
        else if (a == "--chapters" || a == "--no-chapters")
            out.chapters = a == "--chapters";
        else if (a == "-o" || a == "--output")
            ok = value(r.output);
        else if (a == "--type")
            ok = number(type);
        else if (a == "--rate")
            ok = number(r.sampleRate);
        else if (a == "--channels")
            ok = number(r.channels);
        else if (a == "--bitrate")
            ok = number(r.bitrate);
        else if (a == "--title")
            ok = value(r.title);
        else if (a == "--author")
            ok = value(r.author);
        else if (a == "--narrator")
            ok = value(r.narrator);
        else if (a == "--provider")
            ok = value(r.provider);
        else if (a == "--description")
            ok = value(r.description);
        else if (a == "--id")
            ok = value(r.programId);
        else if (a == "--time-offset") {
            std::uint32_t ms = 0;
            ok = number(ms);
            r.timeOffsetMs = ms;
        } else if (a == "--section-title") {
            ok = value(v);
            sectionTitles.push_back(v);
        } else if (a == "--sections") {
            ok = value(v) && ReadSectionList(v, r.sections, error);
        } else if (a == "--span") {
            ok = value(v);
            const auto colon = v.find(':');
            std::uint32_t start = 0, end = 0;
            if (ok && (colon == std::string::npos || !ParseNumber(v.substr(0, colon), start) ||
                       !ParseNumber(v.substr(colon + 1), end) || end <= start)) {
                error = "--span takes START:END in ms with END after START, not '" + v + "'";
                ok = false;
            }
            r.spanMs = {start, end};
        } else if (a == "--picture") {
            ok = value(v);
            zqxauthor::PictureInput p{v, 0, {}};
            const auto at = v.rfind('@');
            if (ok && at != std::string::npos) {
                p.path = v.substr(0, at);
                if (!ParseNumber(v.substr(at + 1), p.startMs)) {
                    error = "--picture takes FILE@MS, not '" + v + "'";
                    ok = false;
                }
            }
            r.pictures.push_back(p);
        } else if (a.size() > 1 && a[0] == '-') {
            error = "unknown option " + a;
            ok = false;
        } else
            inputs.push_back(a);
        if (!ok)
            return false;
    }
    if (out.help)
        return true;
    if (type == 0) {
        // Without a type a book is packed as feldrun imports it.
        type = zqxauthor::kSpeechFileType;
        if (r.channels == 0)
            r.channels = zqxauthor::kSpeechChannels;
    }
    if (!zqxauthor::FindFileType(int(type))) {
        error = "unsupported file type " + std::to_string(type) + " (types are 1 to 5)";
        return false;
    }
    r.fileType = int(type);
    if (sectionTitles.size() > inputs.size()) {
        error = "more --section-title options than input files";
        return false;
    }
    for (std::size_t i = 0; i < inputs.size(); ++i)
        r.sections.push_back({inputs[i], i < sectionTitles.size() ? sectionTitles[i] : std::string(), {}});
    if (r.sections.empty()) {
        error = "no input files given";
        return false;
    }
    return true;
}

bool ChooseDefaultOutput(zqxauthor::PackRequest& request, std::string& error)
{
    if (!request.output.empty())
        return true;
    const fs::path first = request.sections.front().path;
    const std::string extension = zqxauthor::FindFileType(request.fileType)->extension;
    const std::string name = zqxauthor::NameForFile(request.title, first.stem().string());
    for (const fs::path& candidate : {first.parent_path() / (name + extension),
                                      first.parent_path() / (first.stem().string() + extension)}) {
        std::error_code ec;
        const bool isInput =
            std::any_of(request.sections.begin(), request.sections.end(),
                        [&](const auto& s) { return fs::equivalent(candidate, s.path, ec); });
        if (!isInput) {
            request.output = candidate.string();
            return true;
        }
    }
    error = "the default output would replace the input '" + first.string() + "'; name one with -o OUTPUT";
    return false;
}

} // namespace zqxpack
