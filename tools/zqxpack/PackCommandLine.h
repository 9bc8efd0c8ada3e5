#pragma once

#include "zqxauthor/ProgramPacker.h"

#include <string>
#include <vector>

namespace zqxpack {

struct PackCommandLine {
    zqxauthor::PackRequest request;
    bool help = false;
    bool quiet = false;
    bool chapters = true; // a file's chapters become its sections
};

// Parses zqxpack's arguments (without the program name). False with `error`
// naming the offending argument; a section-list file is read here.
bool ParsePackCommandLine(const std::vector<std::string>& args, PackCommandLine& out, std::string& error);

// Without -o: TITLE plus the type's extension beside the first input (TITLE
// from --title or the tags, as filled in by then), else the input's own name
// with that extension; a name that is one of the inputs is never taken.
bool ChooseDefaultOutput(zqxauthor::PackRequest& request, std::string& error);

extern const char* const kPackUsage;

} // namespace zqxpack
