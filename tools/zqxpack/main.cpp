// zqxpack: makes a program file from ordinary audio files.
#include "PackCommandLine.h"
#include "TalvoVersion.h"
#include "zqxauthor/BookPlanner.h"
#include "zqxauthor/PacketEncoderFactory.h"
#include "zqxauthor/ProgressBar.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace {

constexpr int kExitPackFailed = 1;
constexpr int kExitUsage = 2;

// What the inputs' tags, chapters and covers supply where the command line is silent.
bool FillFromInputs(zqxpack::PackCommandLine& cl, std::string& error)
{
    auto& r = cl.request;
    std::vector<zqxauthor::BookFile> files;
    for (const auto& s : r.sections) {
        files.emplace_back();
        if (!zqxauthor::ProbeBookFile(s.path, files.back(), error))
            return false;
    }
    const auto folder = std::filesystem::path(r.sections.front().path).parent_path();
    const auto plan = zqxauthor::PlanBook(files, cl.chapters, "", folder.empty() ? "." : folder.string());
    for (const auto& w : plan.warnings)
        std::fprintf(stderr, "zqxpack: warning: %s\n", w.c_str());
    for (std::size_t i = 0; i < r.sections.size(); ++i) {
        if (r.sections[i].title.empty())
            r.sections[i].title = plan.sections[i].title;
        r.sections[i].marks = plan.sections[i].marks;
    }
    for (auto [field, tag] : {std::pair{&r.title, &plan.fields.title},
                              {&r.author, &plan.fields.author},
                              {&r.narrator, &plan.fields.narrator},
                              {&r.provider, &plan.fields.provider},
                              {&r.description, &plan.fields.description}})
        if (field->empty())
            *field = *tag;
    if (r.pictures.empty())
        r.pictures = plan.pictures;
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 1 && args[0] == "--version") {
        std::puts("zqxpack " TALVO_VERSION_TEXT);
        return 0;
    }
    zqxpack::PackCommandLine cl;
    std::string error;
    if (!zqxpack::ParsePackCommandLine(args, cl, error)) {
        std::fprintf(stderr, "zqxpack: %s\n%s", error.c_str(), zqxpack::kPackUsage);
        return kExitUsage;
    }
    if (cl.help) {
        std::fputs(zqxpack::kPackUsage, stdout);
        return 0;
    }
    if (!FillFromInputs(cl, error)) {
        std::fprintf(stderr, "zqxpack: %s\n", error.c_str());
        return kExitPackFailed;
    }
    if (!zqxpack::ChooseDefaultOutput(cl.request, error)) {
        std::fprintf(stderr, "zqxpack: %s\n", error.c_str());
        return kExitUsage;
    }
    if (const auto* info = zqxauthor::FindFileType(cl.request.fileType);
        info && std::filesystem::path(cl.request.output).extension() != info->extension)
        std::fprintf(stderr, "zqxpack: warning: type %d files are named '%s'; the player may not find '%s'\n",
                     cl.request.fileType, info->extension, cl.request.output.c_str());
    const auto& r = cl.request;
    zqxauthor::ProgressBar bar;
    const bool showProgress = !cl.quiet && isatty(STDOUT_FILENO);
    zqxauthor::ProgramPacker packer;
    const bool ok =
        packer.Pack(r, showProgress ? zqxauthor::ProgramPacker::Progress([&](double f) { bar.Show(f); })
                                    : zqxauthor::ProgramPacker::Progress());
    bar.End();
    for (const auto& w : packer.Warnings())
        std::fprintf(stderr, "zqxpack: warning: %s\n", w.c_str());
    if (!ok) {
        std::fprintf(stderr, "zqxpack: %s\n", packer.Error().c_str());
        return kExitPackFailed;
    }
    if (!cl.quiet)
        std::printf("%s: type %d, %u packets\n", r.output.c_str(), r.fileType, packer.PacketsWritten());
    return 0;
}
