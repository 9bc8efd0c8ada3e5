// Reading a feed of 10,000 items, as the largest podcasts publish, beside a
// bare QXmlStreamReader pass over the same bytes that reads every element's
// text and nothing more: the least any reader of the feed must do.  The ratio
// is the cost of what feldrun does on top (namespaces by URI, links resolved,
// GUIDs checked for repeats, descriptions made plain text, dates read).
#include "Feed.h"

#include <QXmlStreamReader>

#include <chrono>
#include <cstdio>
#include <functional>

namespace {

constexpr int kItems = 10000;
constexpr int kRounds = 5;

QByteArray LargeFeed()
{
    QByteArray feed = R"(<?xml version="1.0" encoding="UTF-8"?>
<rss version="2.0" xmlns:itunes="http://www.itunes.com/dtds/podcast-1.0.dtd"
     xmlns:podcast="https://podcastindex.org/namespace/1.0"><channel><title>Daily</title>
<itunes:author>Radio North</itunes:author><itunes:image href="https://example.org/cover.jpg"/>)";
    for (int i = 0; i < kItems; ++i) {
        const QByteArray n = QByteArray::number(i);
        feed += "<item><title>Episode " + n + "</title><guid isPermaLink=\"false\">daily-" + n +
                "</guid><pubDate>Mon, 4 Mar 2024 06:00:00 +0100</pubDate>"
                "<description><![CDATA[<p>Top stories of the day &amp; the weather.</p><p>Sport.</p>]]>"
                "</description><enclosure url=\"audio/" +
                n +
                ".mp3\" length=\"48000000\" type=\"audio/mpeg\"/><itunes:duration>59:30</itunes:duration>"
                "<podcast:chapters url=\"" +
                n + ".json\" type=\"application/json+chapters\"/></item>\n";
    }
    return feed + "</channel></rss>\n";
}

double Seconds(const std::function<void()>& run)
{
    const auto start = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

int main()
{
    const QByteArray bytes = LargeFeed();
    const QUrl base(QStringLiteral("https://example.org/feed.xml"));
    std::size_t episodes = 0;
    qsizetype textLength = 0;
    double feldrunSeconds = 0;
    double bareSeconds = 0;
    // Taking turns, so a change in the machine's load weighs on both alike.
    for (int round = 0; round < kRounds; ++round) {
        bareSeconds += Seconds([&] {
            QXmlStreamReader xml(bytes);
            while (!xml.atEnd()) {
                if (xml.readNext() == QXmlStreamReader::Characters)
                    textLength += xml.text().size();
            }
        });
        feldrunSeconds += Seconds([&] {
            feldrun::Feed feed;
            QString error;
            if (!feldrun::ParseFeed(bytes, base, feed, error)) {
                std::fprintf(stderr, "%s\n", qPrintable(error));
                std::exit(1);
            }
            episodes = feed.episodes.size();
        });
    }
    if (episodes != std::size_t(kItems) || textLength == 0) {
        std::fprintf(stderr, "read %zu of %d episodes\n", episodes, kItems);
        return 1;
    }
    std::printf(
        "feed of %d items (%lld kB): ParseFeed %.0f ms   bare XML pass %.0f ms   ParseFeed/bare %.2f\n",
        kItems, static_cast<long long>(bytes.size() / 1024), 1000 * feldrunSeconds / kRounds,
        1000 * bareSeconds / kRounds, feldrunSeconds / bareSeconds);
    return 0;
}
