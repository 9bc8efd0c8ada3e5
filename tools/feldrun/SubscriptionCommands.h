#pragma once
// The subscription commands: `feldrun subscribe`, `unsubscribe`, `list`,
// `keep` and `opml import|export`.  Each returns the process exit status: 0
// done, 1 failed, 2 a wrong command line.

#include "platform/Registry.h"

#include <memory>
#include <string>
#include <vector>

namespace feldrun {

inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;

// The listener's settings store (TALVOPLAYER_REGISTRY, else the default), or
// null after a message on standard error naming `command` and the cause.  A
// damaged store is refused and left as it is: the player's start and
// `talvoreg repair` recover it.
std::unique_ptr<talvo::Registry> OpenSettingsStore(const char* command);

int RunSubscribeCommand(const std::vector<std::string>& args, const std::string& playerPath);
int RunUnsubscribeCommand(const std::vector<std::string>& args, const std::string& playerPath);
int RunListCommand(const std::vector<std::string>& args, const std::string& playerPath);
int RunKeepCommand(const std::vector<std::string>& args, const std::string& playerPath);
int RunOpmlCommand(const std::vector<std::string>& args, const std::string& playerPath);

extern const char* const kSubscribeUsage;
extern const char* const kUnsubscribeUsage;
extern const char* const kListUsage;
extern const char* const kKeepUsage;
extern const char* const kOpmlUsage;

} // namespace feldrun
