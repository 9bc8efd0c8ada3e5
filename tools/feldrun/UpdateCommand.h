#pragma once

#include "platform/Registry.h"

#include <QString>

#include <string>
#include <vector>

namespace feldrun {

// `feldrun update [TITLE|URL]`: every subscription, or the one named, brought
// up to date.  Returns the process exit status.
int RunUpdateCommand(const std::vector<std::string>& args, const std::string& playerPath);

// Brings every subscription, or the one whose URL or title is `which`, up to
// date, printing each failure on standard error under `command`'s name and,
// unless quiet, progress on a terminal.  Returns the exit status.
int UpdateSubscriptions(talvo::Registry& registry, const QString& which, const std::string& playerPath,
                        bool quiet, const char* command);

extern const char* const kUpdateUsage;

} // namespace feldrun
