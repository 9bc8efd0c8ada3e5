#pragma once
// The subscription commands: `feldrun subscribe`, `unsubscribe`, `list`,
// `keep` and `opml import|export`.  Each returns the process exit status: 0
// done, 1 failed, 2 a wrong command line.

#include "Opml.h"
#include "SubscriptionStore.h"
#include "platform/Registry.h"

#include <QString>
#include <QUrl>

#include <memory>
#include <optional>
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

// A feed's address as the listener typed it: http or https only; none, with
// why in error, for anything else.
std::optional<QUrl> FeedUrl(const QString& text, QString& error);

// What became of each feed an OPML file lists, in the file's order: subscribed
// to now (skipped empty), or passed over with why (already subscribed, not
// http or https).
struct OpmlEntry {
    OpmlOutline outline;
    QString skipped;
};
// Subscribes to every feed the OPML file at path lists; false with error when
// the file cannot be read, is no OPML, or the store fails (what was added
// before stays).
bool ImportOpmlFile(SubscriptionStore& store, const QString& path, std::vector<OpmlEntry>& entries,
                    QString& error);

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
