#pragma once
// Subscriptions and the state of their episodes, kept in the player's
// settings store under a key of feldrun's own, so that the store's tools show
// them and its recovery covers them.

#include "platform/Registry.h"

#include <QDateTime>
#include <QString>
#include <QUrl>

#include <cstdint>
#include <optional>
#include <vector>

namespace feldrun {

enum class EpisodeState : std::uint32_t { New = 0, Downloading = 1, Ready = 2, Listened = 3, Failed = 4 };

struct EpisodeRecord {
    QString guid;
    QString title;
    QDateTime published;
    QUrl enclosureUrl;
    EpisodeState state = EpisodeState::New;
    QString programPath; // the packed program, once Ready or Listened
    QString programId;   // the id its positions are stored under
    QString error;       // why it Failed
    bool operator==(const EpisodeRecord&) const = default;
};

// The newest episodes a subscription keeps when nobody says otherwise, and
// the most it may keep.
inline constexpr std::uint32_t kDefaultKeep = 3;
inline constexpr std::uint32_t kMaxKeep = 100;

struct Subscription {
    QUrl url; // where the feed is fetched; a permanent redirect replaces it
    QString title;
    QString author;
    QUrl imageUrl;
    QString etag;                        // of the last feed fetched, sent back as If-None-Match
    QString lastModified;                // sent back as If-Modified-Since
    std::uint32_t keep = kDefaultKeep;   // the newest episodes kept on the device, 1 to kMaxKeep
    std::vector<EpisodeRecord> episodes; // newest first
    // The store's name for it, set by Load and Find; Save keeps writing there
    // when url changes.  Empty for a subscription not saved yet.
    QString storeKey;
    bool operator==(const Subscription&) const = default;
};

class SubscriptionStore {
public:
    explicit SubscriptionStore(talvo::Registry& registry) : registry_(registry) {}

    // Every subscription in the order they were made; false with error() when
    // the store cannot be read (damaged values are skipped, not fatal).
    bool Load(std::vector<Subscription>& subscriptions);
    // Finds one by its URL or, failing that, by its title (without case).
    std::optional<Subscription> Find(const QString& urlOrTitle);
    // Writes one subscription whole, in one transaction.
    bool Save(const Subscription& subscription);
    bool Remove(const QUrl& url);
    const QString& error() const { return error_; }
    // The records the last Load or Find passed over as damaged, each named
    // by its key with what was wrong.
    const std::vector<QString>& skipped() const { return skipped_; }

private:
    bool fail(const QString& what, talvo::RegStatus status);

    talvo::Registry& registry_;
    QString error_;
    std::vector<QString> skipped_;
};

} // namespace feldrun
