// Fuzz target over what a feed's server can send feldrun: the bytes are read
// as a feed, as a JSON chapters document and as an OPML file.  Besides not
// crashing, what is read must hold what the updater relies on: every episode
// has a GUID of its own and an http or https enclosure, chapters are ordered,
// a failure says why, and an OPML file's outlines survive an export and a
// second import unchanged.

#include "Feed.h"
#include "Opml.h"

#include <QSet>

#include <cstdint>

namespace {

const QUrl kBase(QStringLiteral("https://feeds.example.org/show/feed.xml"));

void CheckFeed(const QByteArray& bytes)
{
    feldrun::Feed feed;
    QString error;
    if (!feldrun::ParseFeed(bytes, kBase, feed, error)) {
        if (error.isEmpty() || !feed.episodes.empty())
            __builtin_trap();
        return;
    }
    QSet<QString> guids;
    for (const feldrun::FeedEpisode& e : feed.episodes) {
        const QString scheme = e.enclosureUrl.scheme();
        if (e.guid.isEmpty() || guids.contains(e.guid) || (scheme != u"http" && scheme != u"https"))
            __builtin_trap();
        guids.insert(e.guid);
    }
}

void CheckChapters(const QByteArray& bytes)
{
    std::vector<feldrun::FeedChapter> chapters;
    QString error;
    if (!feldrun::ParseChaptersJson(bytes, kBase, chapters, error)) {
        if (error.isEmpty() || !chapters.empty())
            __builtin_trap();
        return;
    }
    for (std::size_t i = 1; i < chapters.size(); ++i) {
        if (chapters[i - 1].startMs >= chapters[i].startMs)
            __builtin_trap();
    }
}

void CheckOpml(const QByteArray& bytes)
{
    std::vector<feldrun::OpmlOutline> outlines;
    QString error;
    if (!feldrun::ParseOpml(bytes, outlines, error)) {
        if (error.isEmpty())
            __builtin_trap();
        return;
    }
    std::vector<feldrun::OpmlOutline> again;
    if (!feldrun::ParseOpml(feldrun::WriteOpml(outlines, QStringLiteral("fuzz")), again, error) ||
        again.size() != outlines.size())
        __builtin_trap();
    for (std::size_t i = 0; i < again.size(); ++i) {
        // A subscription is known by its URL fully encoded ("#" in a fragment
        // reads back as "%23"), as the store keys it.
        if (again[i].url.toEncoded() != outlines[i].url.toEncoded() || again[i].title != outlines[i].title)
            __builtin_trap();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    CheckFeed(bytes);
    CheckChapters(bytes);
    CheckOpml(bytes);
    return 0;
}
