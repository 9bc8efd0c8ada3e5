#pragma once
// What a subscription's feed says: the programme and its episodes, read from
// RSS 2.0 or Atom with the iTunes and Podcasting 2.0 namespaces.

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QUrl>

#include <cstdint>
#include <vector>

namespace feldrun {

struct FeedEpisode {
    // The item's GUID, or its enclosure URL when it has none: what tells one
    // episode from another across updates.
    QString guid;
    QString title;
    QString description;              // plain text, markup removed
    QUrl enclosureUrl;                // absolute, resolved against the feed's URL
    std::uint64_t enclosureBytes = 0; // as the feed states it; 0 when unknown
    QString enclosureType;
    QUrl imageUrl;                     // the item's itunes:image, else the programme's picture
    QUrl chaptersUrl;                  // podcast:chapters (JSON), preferred over the file's own
    QDateTime published;               // UTC; invalid when the feed gives no date it can be read from
    std::uint32_t durationSeconds = 0; // itunes:duration; 0 when unknown
};

struct Feed {
    QString title;
    QString author; // itunes:author, else the managing editor or the Atom author
    QString description;
    QUrl imageUrl;
    QUrl link;
    std::vector<FeedEpisode> episodes; // in the feed's order; items without an enclosure are left out
    // What was left out of a feed that was read, for the listener: items that
    // repeat an earlier item's GUID (the first is kept), unusable enclosures.
    std::vector<QString> warnings;
};

// Reads a feed's bytes; baseUrl (where they came from) resolves relative
// links.  On failure returns false with a message a listener can act on
// ("not a feed: an HTML page", "not XML: ... at line 3").
bool ParseFeed(const QByteArray& bytes, const QUrl& baseUrl, Feed& feed, QString& error);

// A date in any of the forms feeds use (RFC 822 with or without the weekday,
// numeric or named zones, two-digit years, ISO 8601); invalid when unreadable.
QDateTime ParseFeedDate(const QString& text);

struct FeedChapter {
    std::uint32_t startMs = 0;
    QString title;
    QUrl imageUrl;
};

// A podcast:chapters JSON document, ordered by start; false with a message
// when it is not one.
bool ParseChaptersJson(const QByteArray& bytes, const QUrl& baseUrl, std::vector<FeedChapter>& chapters,
                       QString& error);

} // namespace feldrun
