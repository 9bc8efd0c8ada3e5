#pragma once

#include <string>
#include <vector>

namespace feldrun {

// `feldrun import [options] PATH...`: one program per file or folder.
// Returns the process exit status.
int RunImportCommand(const std::vector<std::string>& args, const std::string& playerPath);

extern const char* const kImportUsage;

} // namespace feldrun
