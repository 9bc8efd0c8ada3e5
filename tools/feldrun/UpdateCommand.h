#pragma once

#include <string>
#include <vector>

namespace feldrun {

// `feldrun update [TITLE|URL]`: every subscription, or the one named, brought
// up to date.  Returns the process exit status.
int RunUpdateCommand(const std::vector<std::string>& args, const std::string& playerPath);

extern const char* const kUpdateUsage;

} // namespace feldrun
