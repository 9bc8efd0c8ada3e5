// Writes the seed inputs of feed_fuzz: an RSS feed with the iTunes and
// Podcasting 2.0 namespaces, an Atom feed, JSON chapters and an OPML file,
// each with the parts the readers treat specially (relative and non-ASCII
// links, HTML entities, repeated GUIDs, dates in several forms).
//   feed_fuzz_seeds FOLDER

#include <QDir>
#include <QFile>

#include <cstdio>

namespace {

constexpr const char* kRss = R"(<?xml version="1.0" encoding="UTF-8"?>
<rss version="2.0" xmlns:itunes="http://www.itunes.com/dtds/podcast-1.0.dtd"
     xmlns:podcast="https://podcastindex.org/namespace/1.0" xmlns:content="http://purl.org/rss/1.0/modules/content/">
<channel><title>Morning &amp; Report</title><itunes:author>Radio North</itunes:author>
<description><![CDATA[<p>News</p><p>Weather &eacute;</p>]]></description><itunes:image href="art/cover.jpg"/>
<image><url>https://example.org/logo.png</url></image>
<item><title>Monday</title><guid isPermaLink="false">mon</guid><pubDate>Mon, 4 Mar 24 06:00 EST</pubDate>
<enclosure url="audio/caf&#233; mon.mp3" length="4800000" type="audio/mpeg"/><itunes:duration>1:02:03</itunes:duration>
<podcast:chapters url="mon.json" type="application/json+chapters"/><content:encoded>&lt;b&gt;x&lt;/b&gt;</content:encoded></item>
<item><title>Repeat</title><guid>mon</guid><enclosure url="https://cdn.example.org/2.mp3"/></item>
<item><title>No GUID</title><enclosure url="//cdn.example.org/3.mp3?a=1&amp;b=2"/><itunes:duration>59:30</itunes:duration></item>
</channel></rss>
)";

constexpr const char* kAtom = R"(<?xml version="1.0"?>
<feed xmlns="http://www.w3.org/2005/Atom"><title type="html">Talks &amp;amp; Tales</title>
<author><name>Ada</name></author><logo>/logo.png</logo>
<entry><id>urn:uuid:1</id><title>First</title><published>2024-04-30T23:30:00.5-02:00</published>
<summary type="html">&lt;p&gt;One&lt;/p&gt;</summary><link rel="enclosure" href="first.ogg" length="99" type="audio/ogg"/></entry>
<entry><id>urn:uuid:2</id><updated>2024-05-02</updated><link rel="enclosure" href="https://example.org/2.m4a"/></entry>
</feed>
)";

constexpr const char* kChapters = R"({"version": "1.2.0", "chapters": [
{"startTime": 0, "title": "Intro"}, {"startTime": 65.5, "title": "Sport", "img": "img/sport.png"},
{"startTime": "30", "title": "News"}, {"startTime": 40, "title": "Hidden", "toc": false}]}
)";

constexpr const char* kOpml = R"(<?xml version="1.0" encoding="utf-8"?>
<opml version="2.0"><head><title>Mine</title></head><body>
<outline text="News"><outline text="Daily &amp; More" type="rss" xmlUrl="https://example.org/daily.xml"/>
<outline title="Only a title" xmlurl="http://b.example/f&#252;r.xml"/></outline>
<outline text="Duplicate" xmlUrl="https://example.org/daily.xml"/></body></opml>
)";

struct Seed {
    const char* name;
    const char* text;
};
constexpr Seed kSeeds[] = {
    {"rss.xml", kRss}, {"atom.xml", kAtom}, {"chapters.json", kChapters}, {"subs.opml", kOpml}};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fputs("usage: feed_fuzz_seeds FOLDER\n", stderr);
        return 2;
    }
    const QDir folder(QString::fromLocal8Bit(argv[1]));
    if (!folder.mkpath(QStringLiteral(".")))
        return 1;
    for (const Seed& seed : kSeeds) {
        QFile file(folder.filePath(QString::fromLatin1(seed.name)));
        if (!file.open(QIODevice::WriteOnly) || file.write(seed.text) < 0)
            return 1;
    }
    return 0;
}
