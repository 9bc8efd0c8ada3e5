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
};

struct Subscription {
    QUrl url;        // where the feed is fetched; a permanent redirect replaces it
    QString title;
    QString author;
    QUrl imageUrl;
    QString etag;          // of the last feed fetched, sent back as If-None-Match
    QString lastModified;  // sent back as If-Modified-Since
    std::uint32_t keep = 3; // the newest episodes kept on the device
    std::vector<EpisodeRecord> episodes; // newest first
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

private:
    talvo::Registry& registry_;
    QString error_;
};

} // namespace feldrun
