#include "BookImporter.h"

#include "zqx/TalvoMetadata.h"
#include "zqxauthor/PacketEncoderFactory.h"
#include "zqxauthor/ProgramPacker.h"

#include "SyncClient.h"
#include "platform/SystemError.h"

#include <QString>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>

namespace fs = std::filesystem;

namespace feldrun {
namespace {

constexpr std::size_t kMaxIdBytes = 100;

std::u16string Utf16(const std::string& utf8)
{
    const QString text = QString::fromStdString(utf8);
    return std::u16string(reinterpret_cast<const char16_t*>(text.utf16()), std::size_t(text.size()));
}

// A stable identifier for a book never imported before: the author and title
// in lower case, words joined by "-", so a book deleted and imported again
// finds its positions under the same id.
std::string NewProgramId(const zqxauthor::ProgramFields& fields)
{
    std::string id;
    for (const unsigned char c : fields.author + " " + fields.title) {
        if (std::isalnum(c) || c >= 0x80)
            id += char(std::tolower(c));
        else if (!id.empty() && id.back() != '-')
            id += '-';
    }
    while (!id.empty() && id.back() == '-')
        id.pop_back();
    id = zqxauthor::CutUtf8(id, kMaxIdBytes);
    return id.empty() ? "book" : id;
}

bool IsProgramName(const fs::path& p)
{
    return p.filename().string().find(".zq") != std::string::npos;
}

// The program id of a program already in the book's folder, if there is one.
std::string ExistingProgramId(const fs::path& folder)
{
    std::error_code ec;
    std::vector<fs::path> programs;
    for (const auto& entry : fs::directory_iterator(folder, ec))
        if (IsProgramName(entry.path()))
            programs.push_back(entry.path());
    std::sort(programs.begin(), programs.end());
    for (const fs::path& p : programs) {
        CTalvoMetadata meta;
        if (meta.OpenZQXFile(Utf16(p.string())) == ZQX_OK && !meta.GetProgramId().empty())
            return meta.GetProgramId();
    }
    return {};
}

} // namespace

bool BookImporter::Fail(std::string message)
{
    error_ = std::move(message);
    return false;
}

bool BookImporter::Import(const std::string& path, ImportResult& result, const Progress& progress)
{
    error_.clear();
    zqxauthor::BookPlan plan;
    if (!Plan(path, result, plan))
        return false;
    if (options_.dryRun)
        return true;
    return Finish(plan, result, progress);
}

bool BookImporter::ImportEpisode(const EpisodeInput& episode, ImportResult& result, const Progress& progress)
{
    error_.clear();
    zqxauthor::BookFile file;
    if (!zqxauthor::ProbeBookFile(episode.audioPath, file, error_))
        return false;
    if (episode.chapters)
        file.chapters = *episode.chapters;
    // A file without chapters is one section, named by its title tag or else
    // its file name, which for a download is no name at all.
    if (zqxauthor::FindTag(file.tags, {"title"}).empty())
        file.tags.push_back({"title", episode.fields.title});
    zqxauthor::BookPlan plan;
    PlanEpisode(episode, file, result, plan);
    return Finish(plan, result, progress);
}

void BookImporter::PlanEpisode(const EpisodeInput& episode, const zqxauthor::BookFile& file,
                               ImportResult& result, zqxauthor::BookPlan& plan) const
{
    // No picture folder: the download folder's other files are not this episode's.
    plan = zqxauthor::PlanBook({file}, true, episode.fields.title, {});
    const auto take = [](const std::string& given, std::string& field) {
        if (!given.empty())
            field = given;
    };
    take(episode.fields.title, plan.fields.title);
    take(episode.fields.author, plan.fields.author);
    take(episode.fields.narrator, plan.fields.narrator);
    take(episode.fields.provider, plan.fields.provider);
    take(episode.fields.description, plan.fields.description);
    if (!episode.picture.empty()) {
        // The file's cover, if it has one, comes before its chapters' pictures.
        if (plan.pictures.size() > file.chapterPictures.size())
            plan.pictures.erase(plan.pictures.begin());
        plan.pictures.insert(plan.pictures.begin(), {episode.audioPath + " (picture)", 0, episode.picture});
    }
    const std::string name = zqxauthor::NameForFile(episode.episode, "Episode");
    const fs::path folder = fs::path(options_.musicFolder) /
                            zqxauthor::NameForFile(episode.programme, "Unknown Programme") / name;
    result.programPath = (folder / (name + zqxauthor::FindFileType(options_.fileType)->extension)).string();
    result.programId = episode.programId;
    result.idKept = false;
    result.fields = plan.fields;
    result.sections = plan.sections;
    result.warnings = plan.warnings;
}

bool BookImporter::Finish(const zqxauthor::BookPlan& plan, ImportResult& result, const Progress& progress)
{
    if (!Write(plan, result, progress))
        return false;
    RemoveOtherCopies(result);
    if (auto warning = TellPlayer(result.programPath))
        result.warnings.push_back(std::move(*warning));
    return true;
}

bool BookImporter::Plan(const std::string& path, ImportResult& result, zqxauthor::BookPlan& plan)
{
    std::error_code ec;
    const fs::path input = fs::absolute(path, ec).lexically_normal();
    std::vector<zqxauthor::BookFile> files;
    std::string fallbackTitle;
    fs::path pictureFolder;
    if (fs::is_directory(input, ec)) {
        if (!zqxauthor::ProbeBookFolder(input.string(), files, error_))
            return false;
        fallbackTitle = (input.has_filename() ? input : input.parent_path()).filename().string();
        pictureFolder = input;
    } else {
        files.emplace_back();
        if (!zqxauthor::ProbeBookFile(input.string(), files.back(), error_))
            return false;
        fallbackTitle = input.stem().string();
        pictureFolder = input.parent_path();
    }
    plan = zqxauthor::PlanBook(files, true, fallbackTitle, pictureFolder.string());
    const auto* type = zqxauthor::FindFileType(options_.fileType);
    const std::string title = zqxauthor::NameForFile(plan.fields.title, "Untitled");
    const fs::path folder =
        fs::path(options_.musicFolder) / zqxauthor::NameForFile(plan.fields.author, "Unknown Author") / title;
    result.programPath = (folder / (title + type->extension)).string();
    result.programId = ExistingProgramId(folder);
    result.idKept = !result.programId.empty();
    if (!result.idKept)
        result.programId = NewProgramId(plan.fields);
    result.fields = plan.fields;
    result.sections = plan.sections;
    result.warnings = plan.warnings;
    return true;
}

bool BookImporter::Write(const zqxauthor::BookPlan& plan, ImportResult& result, const Progress& progress)
{
    // Make the folders the program needs, and remember them: a failed import removes them again.
    std::vector<fs::path> made;
    const auto removeMade = [&made] {
        std::error_code ignored;
        for (auto it = made.rbegin(); it != made.rend(); ++it)
            fs::remove(*it, ignored); // only if still empty
    };
    const fs::path folder = fs::path(result.programPath).parent_path();
    for (const fs::path& f : {folder.parent_path().parent_path(), folder.parent_path(), folder}) {
        std::error_code ec;
        if (fs::is_directory(f, ec))
            continue;
        if (!fs::create_directory(f, ec) || ec) {
            removeMade();
            return Fail("cannot make the folder '" + f.string() +
                        "': " + (ec ? ec.message() : std::string("a file of that name is in the way")));
        }
        made.push_back(f);
    }
    zqxauthor::PackRequest request;
    request.fileType = options_.fileType;
    request.channels = zqxauthor::kSpeechChannels;
    request.sections = plan.sections;
    request.pictures = plan.pictures;
    request.programId = result.programId;
    request.title = plan.fields.title;
    request.author = plan.fields.author;
    request.narrator = plan.fields.narrator;
    request.provider = plan.fields.provider;
    request.description = plan.fields.description;
    request.output = result.programPath;
    zqxauthor::ProgramPacker packer;
    errno = 0;
    const bool ok = packer.Pack(request, progress);
    // The program file's writer says only that writing failed; a full disk
    // is the one cause a listener can do something about, and only a write
    // leaves ENOSPC behind.
    const int cause = errno;
    result.warnings.insert(result.warnings.end(), packer.Warnings().begin(), packer.Warnings().end());
    if (!ok) {
        removeMade();
        if (cause == ENOSPC || cause == EDQUOT)
            return Fail(packer.Error() + ": " + talvo::SystemErrorFromErrno(cause).text.toStdString());
        return Fail(packer.Error());
    }
    return true;
}

// A book imported before as another file type (Title.zq beside the new Title.zqx)
// is the same program: only the new file stays.
void BookImporter::RemoveOtherCopies(const ImportResult& result) const
{
    const fs::path made = result.programPath;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(made.parent_path(), ec)) {
        if (entry.path() == made || !IsProgramName(entry.path()) || entry.path().extension() == ".pos" ||
            entry.path().extension() == ".posx")
            continue;
        CTalvoMetadata meta;
        if (meta.OpenZQXFile(Utf16(entry.path().string())) == ZQX_OK &&
            meta.GetProgramId() == result.programId)
            fs::remove(entry.path(), ec);
    }
}

// Through the sync interface, as the desktop does it: the path goes into
// "_DataIn" (the player reads its input only from there), then the player runs
// the command; a running player adds the program to its list and selects it,
// with no player running the command does nothing.
std::optional<std::string> BookImporter::TellPlayer(const std::string& programPath) const
{
    if (options_.playerPath.empty() || !fs::exists(options_.playerPath))
        return std::nullopt;
    talvo::sync::SyncClientOptions client;
    client.player = QString::fromStdString(options_.playerPath);
    client.talvoreg =
        QString::fromStdString((fs::path(options_.playerPath).parent_path() / "talvoreg").string());
    const talvo::sync::SyncOutcome told = talvo::sync::RunSyncCommandOnDevice(
        client, talvo::SyncCommand::AddProgram, QString::fromStdString(programPath));
    if (!told.error.isEmpty())
        return "the running player was not told of the program: " + told.error.toStdString();
    if (told.result != 0)
        return "the running player was not told of the program: it answered " +
               QStringLiteral("0x%1").arg(told.result, 8, 16, QLatin1Char('0')).toStdString();
    return std::nullopt;
}

} // namespace feldrun
