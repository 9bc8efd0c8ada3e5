#include "ImportCommand.h"

#include "BookImporter.h"
#include "platform/FileNames.h"
#include "platform/ProgramFolders.h"
#include "zqxauthor/PacketEncoderFactory.h"
#include "zqxauthor/ProgressBar.h"

#include <unistd.h>

#include <charconv>
#include <cstdio>

namespace feldrun {

const char* const kImportUsage =
    "usage: feldrun import [options] PATH...\n"
    "\n"
    "Brings audio books into the Music folder as programs the player finds: each PATH,\n"
    "a file (M4B/M4A, MP3, Ogg Vorbis or Opus, FLAC, WAV, Matroska, WMA) or a folder of\n"
    "them (ordered by disc, track and name; CD1/, Disc 2/ inside are one book), becomes\n"
    "Music/Author/Title/Title.zqx. Chapters become sections; tags become the title,\n"
    "author, narrator, provider and description; the embedded cover or a cover.* or\n"
    "folder.* picture beside the files becomes the cover. Importing a book again\n"
    "replaces its program and keeps its positions and bookmarks. A running player is\n"
    "told of each new program.\n"
    "\n"
    "  --type N      program file type: 3 Opus (default, speech rate, mono), 1 or 2 IMA\n"
    "                ADPCM 8 or 16 kHz, 4 MP3 22050 Hz, 5 16-bit PCM\n"
    "  -n, --dry-run show what would be made, make nothing\n"
    "  -q, --quiet   no progress bar and no summary\n"
    "  -h, --help    this text\n"
    "\n"
    "Environment: TALVOPLAYER_MUSIC, the Music folder (default: the XDG music folder).\n"
    "Exit status: 0 when every book was imported, 1 when one could not be, 2 for a wrong\n"
    "command line.\n";

namespace {

constexpr int kExitImportFailed = 1;
constexpr int kExitUsage = 2;

std::string TimeText(std::uint32_t ms)
{
    char text[16];
    std::snprintf(text, sizeof text, "%02u:%02u:%02u", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60);
    return text;
}

void PrintPlan(const ImportResult& r)
{
    std::printf("would make %s\n  title '%s', author '%s', program id %s (%s)\n", r.programPath.c_str(),
                r.fields.title.c_str(), r.fields.author.c_str(), r.programId.c_str(),
                r.idKept ? "kept from the program it replaces" : "new");
    for (const auto& s : r.sections) {
        if (s.marks.empty())
            std::printf("  %s\n", s.title.c_str());
        for (const auto& m : s.marks)
            std::printf("  %s +%s %s\n", s.title.c_str(), TimeText(m.startMs).c_str(), m.title.c_str());
    }
}

} // namespace

int RunImportCommand(const std::vector<std::string>& args, const std::string& playerPath)
{
    ImportOptions options;
    bool quiet = false;
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "-h" || a == "--help") {
            std::fputs(kImportUsage, stdout);
            return 0;
        }
        if (a == "-n" || a == "--dry-run")
            options.dryRun = true;
        else if (a == "-q" || a == "--quiet")
            quiet = true;
        else if (a == "--type") {
            const std::string v = i + 1 < args.size() ? args[++i] : "";
            const auto [end, ec] = std::from_chars(v.data(), v.data() + v.size(), options.fileType);
            if (v.empty() || ec != std::errc() || end != v.data() + v.size() ||
                !zqxauthor::FindFileType(options.fileType)) {
                std::fprintf(stderr, "feldrun import: unsupported file type '%s' (types are 1 to 5)\n%s",
                             v.c_str(), kImportUsage);
                return kExitUsage;
            }
        } else if (a.size() > 1 && a[0] == '-') {
            std::fprintf(stderr, "feldrun import: unknown option %s\n%s", a.c_str(), kImportUsage);
            return kExitUsage;
        } else
            paths.push_back(a);
    }
    if (paths.empty()) {
        std::fprintf(stderr, "feldrun import: no book given\n%s", kImportUsage);
        return kExitUsage;
    }
    options.musicFolder = talvo::EncodeFileName(talvo::MusicFolder()).toStdString();
    if (options.musicFolder.empty()) {
        std::fputs("feldrun import: there is no Music folder (set TALVOPLAYER_MUSIC)\n", stderr);
        return kExitImportFailed;
    }
    options.playerPath = playerPath;
    const bool showProgress = !quiet && !options.dryRun && isatty(STDOUT_FILENO);
    BookImporter importer(options);
    int status = 0;
    for (const std::string& path : paths) {
        zqxauthor::ProgressBar bar;
        ImportResult result;
        const bool ok = importer.Import(path, result,
                                        showProgress ? BookImporter::Progress([&](double f) { bar.Show(f); })
                                                     : BookImporter::Progress());
        bar.End();
        for (const std::string& w : result.warnings)
            std::fprintf(stderr, "feldrun import: warning: %s\n", w.c_str());
        if (!ok) {
            std::fprintf(stderr, "feldrun import: %s: %s\n", path.c_str(), importer.Error().c_str());
            status = kExitImportFailed;
        } else if (options.dryRun)
            PrintPlan(result);
        else if (!quiet)
            std::printf("%s -> %s\n", path.c_str(), result.programPath.c_str());
    }
    return status;
}

} // namespace feldrun
