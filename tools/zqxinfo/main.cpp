// zqxinfo [--json] FILE: metadata, sections, pictures and an integrity verdict
// of one program file.  Exit status 0 for an intact file, 1 for a damaged or
// unreadable one (the SDK's status is named), 2 for a usage error.

#include "ProgramReport.h"
#include "TalvoVersion.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kUsage = R"(Usage: zqxinfo [--json] FILE

Prints what a program file (.zq, .zqx) holds: its metadata, sections and
pictures, and whether every packet of it is intact.

  --json     the same as one JSON object, for scripts
  --help     this text
  --version  the version of zqxinfo

Exit status: 0 for an intact file, 1 for a damaged or unreadable one (the
SDK's status is named), 2 for a wrong command line.
)";

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::puts("zqxinfo " TALVO_VERSION_TEXT);
        return 0;
    }
    bool json = false;
    const char* path = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0)
            json = true;
        else if (!path && argv[i][0] != '-')
            path = argv[i];
        else
            path = nullptr, argc = 0;
    }
    if (!path) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    const ProgramReport report = InspectProgram(path);
    const std::string text = json ? RenderJson(report) : RenderText(report);
    std::fputs(text.c_str(), stdout);
    return report.intact ? 0 : 1;
}
