// zqxinfo [--json] FILE: metadata, sections, pictures and an integrity verdict
// of one program file.  Exit status 0 for an intact file, 1 for a damaged or
// unreadable one (the SDK's status is named), 2 for a usage error.

#include "ProgramReport.h"

#include <cstdio>
#include <cstring>

int main(int argc, char** argv)
{
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
        std::fprintf(stderr, "usage: zqxinfo [--json] FILE\n");
        return 2;
    }
    const ProgramReport report = InspectProgram(path);
    const std::string text = json ? RenderJson(report) : RenderText(report);
    std::fputs(text.c_str(), stdout);
    return report.intact ? 0 : 1;
}
