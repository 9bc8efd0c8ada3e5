// Feeds as podcasts publish them: RSS and Atom, the iTunes and Podcasting 2.0
// namespaces under any prefix, and the broken input a fetch can bring back.
#include "Feed.h"
#include "PlainText.h"

#include <gtest/gtest.h>

using namespace feldrun;

namespace {

const QUrl kBase(QStringLiteral("https://example.org/shows/daily/feed.xml"));

Feed Parsed(const QByteArray& bytes)
{
    Feed feed;
    QString error;
    EXPECT_TRUE(ParseFeed(bytes, kBase, feed, error)) << error.toStdString();
    return feed;
}

QString FailureOf(const QByteArray& bytes)
{
    Feed feed;
    QString error;
    EXPECT_FALSE(ParseFeed(bytes, kBase, feed, error));
    EXPECT_TRUE(feed.episodes.empty());
    return error;
}

QByteArray Rss(const QByteArray& channel,
               const QByteArray& namespaces = R"(xmlns:itunes="http://www.itunes.com/dtds/podcast-1.0.dtd" )"
                                              R"(xmlns:podcast="https://podcastindex.org/namespace/1.0")")
{
    return R"(<?xml version="1.0" encoding="UTF-8"?><rss version="2.0" )" + namespaces + "><channel>" +
           channel + "</channel></rss>";
}

QByteArray Item(const QByteArray& guid, const QByteArray& url, const QByteArray& more = {})
{
    return "<item><title>Episode " + guid + "</title><guid>" + guid + "</guid><enclosure url=\"" + url +
           R"(" length="1234" type="audio/mpeg"/>)" + more + "</item>";
}

} // namespace

TEST(FeedParse, RssWithTheITunesAndPodcastNamespaces)
{
    const Feed feed = Parsed(Rss(R"(
        <title>Morning  Report</title>
        <link>https://example.org/daily</link>
        <itunes:author>Radio North</itunes:author>
        <managingEditor>editor@example.org</managingEditor>
        <description><![CDATA[<p>News &amp; weather.</p><p>Every morning.</p>]]></description>
        <itunes:image href="art/cover.jpg"/>
        <item>
          <title>Monday</title>
          <guid isPermaLink="false">mon-1</guid>
          <pubDate>Mon, 04 Mar 2024 06:00:00 +0100</pubDate>
          <description>&lt;b&gt;Top&lt;/b&gt; stories&lt;br/&gt;Sport</description>
          <enclosure url="https://cdn.example.org/mon.mp3" length="4800000" type="audio/mpeg"/>
          <itunes:duration>1:02:03</itunes:duration>
          <itunes:image href="https://cdn.example.org/mon.jpg"/>
          <podcast:chapters url="mon.json" type="application/json+chapters"/>
        </item>
        <item><title>No audio</title><guid>text-only</guid></item>
        <item>
          <title>Tuesday</title>
          <enclosure url="tue.mp3" type="audio/mpeg"/>
          <itunes:duration>59:30</itunes:duration>
          <podcast:chapters url="tue.html" type="text/html"/>
        </item>)"));
    EXPECT_EQ(feed.title, "Morning Report");
    EXPECT_EQ(feed.author, "Radio North");
    EXPECT_EQ(feed.description, "News & weather.\nEvery morning.");
    EXPECT_EQ(feed.imageUrl, QUrl("https://example.org/shows/daily/art/cover.jpg"));
    EXPECT_EQ(feed.link, QUrl("https://example.org/daily"));
    ASSERT_EQ(feed.episodes.size(), 2u); // the item without an enclosure is left out
    const FeedEpisode& mon = feed.episodes[0];
    EXPECT_EQ(mon.guid, "mon-1");
    EXPECT_EQ(mon.title, "Monday");
    EXPECT_EQ(mon.description, "Top stories\nSport");
    EXPECT_EQ(mon.enclosureBytes, 4800000u);
    EXPECT_EQ(mon.enclosureType, "audio/mpeg");
    EXPECT_EQ(mon.durationSeconds, 3723u);
    EXPECT_EQ(mon.published, QDateTime(QDate(2024, 3, 4), QTime(5, 0), Qt::UTC));
    EXPECT_EQ(mon.imageUrl, QUrl("https://cdn.example.org/mon.jpg"));
    EXPECT_EQ(mon.chaptersUrl, QUrl("https://example.org/shows/daily/mon.json"));
    const FeedEpisode& tue = feed.episodes[1];
    // No GUID: the enclosure's URL tells it apart; no picture of its own: the programme's.
    EXPECT_EQ(tue.guid, "https://example.org/shows/daily/tue.mp3");
    EXPECT_EQ(tue.durationSeconds, 3570u);
    EXPECT_EQ(tue.imageUrl, feed.imageUrl);
    EXPECT_TRUE(tue.chaptersUrl.isEmpty()); // chapters that are not JSON are not ours
    EXPECT_FALSE(tue.published.isValid());
}

TEST(FeedParse, NamespacesAreMatchedByUriNotPrefix)
{
    // Odd prefixes for the right URIs, a mis-declared iTunes URI (https, capitals)
    // and a podcast prefix nobody declared.
    const QByteArray odd = R"(<rss version="2.0" xmlns:it="https://www.itunes.com/DTDs/Podcast-1.0.dtd"
        xmlns:pod="https://github.com/Podcastindex-org/podcast-namespace/blob/main/docs/1.0.md"
        xmlns:itunes="http://example.org/not-itunes"><channel>
        <it:author>Right</it:author><itunes:author>Wrong</itunes:author>
        <item><enclosure url="https://a.example/1.mp3"/><it:duration>90</it:duration>
          <pod:chapters url="https://a.example/1.json" type="application/json+chapters"/></item>
        <item><enclosure url="https://a.example/2.mp3"/><podcast:chapters url="https://a.example/2.json"/></item>
        </channel></rss>)";
    const Feed feed = Parsed(odd);
    EXPECT_EQ(feed.author, "Right");
    ASSERT_EQ(feed.episodes.size(), 2u);
    EXPECT_EQ(feed.episodes[0].durationSeconds, 90u);
    EXPECT_EQ(feed.episodes[0].chaptersUrl, QUrl("https://a.example/1.json"));
    EXPECT_EQ(feed.episodes[1].chaptersUrl, QUrl("https://a.example/2.json"));
}

TEST(FeedParse, Atom)
{
    const Feed feed = Parsed(R"(<?xml version="1.0"?>
        <feed xmlns="http://www.w3.org/2005/Atom" xmlns:itunes="http://www.itunes.com/dtds/podcast-1.0.dtd">
          <title type="html">Talks &amp;amp; Tales</title>
          <author><name>Ada Speaker</name></author>
          <logo>/logo.png</logo>
          <link rel="self" href="https://example.org/atom"/>
          <link href="https://example.org/"/>
          <entry>
            <id>urn:uuid:1</id><title>First</title>
            <updated>2024-05-01T10:00:00Z</updated><published>2024-04-30T23:30:00-02:00</published>
            <summary type="html">&lt;p&gt;One&lt;/p&gt;&lt;p&gt;Two&lt;/p&gt;</summary>
            <link rel="alternate" href="https://example.org/first"/>
            <link rel="enclosure" href="first.ogg" length="99" type="audio/ogg"/>
          </entry>
          <entry><id>urn:uuid:2</id><title>Second</title><updated>2024-05-02</updated>
            <link rel="enclosure" href="https://example.org/second.m4a"/></entry>
        </feed>)");
    EXPECT_EQ(feed.title, "Talks & Tales");
    EXPECT_EQ(feed.author, "Ada Speaker");
    EXPECT_EQ(feed.imageUrl, QUrl("https://example.org/logo.png"));
    EXPECT_EQ(feed.link, QUrl("https://example.org/"));
    ASSERT_EQ(feed.episodes.size(), 2u);
    EXPECT_EQ(feed.episodes[0].guid, "urn:uuid:1");
    EXPECT_EQ(feed.episodes[0].enclosureUrl, QUrl("https://example.org/shows/daily/first.ogg"));
    EXPECT_EQ(feed.episodes[0].enclosureBytes, 99u);
    EXPECT_EQ(feed.episodes[0].description, "One\nTwo");
    EXPECT_EQ(feed.episodes[0].published, QDateTime(QDate(2024, 5, 1), QTime(1, 30), Qt::UTC));
    EXPECT_EQ(feed.episodes[1].published, QDateTime(QDate(2024, 5, 2), QTime(0, 0), Qt::UTC));
}

TEST(FeedParse, EnclosureUrlsRelativeNonAsciiAndUnusable)
{
    const Feed feed = Parsed(Rss(Item("a", "../audio/caf\xC3\xA9 du matin.mp3") +
                                 Item("b", "//cdn.example.net/b.mp3?x=1&amp;y=2") +
                                 Item("c", "https://\xC3\xBC"
                                           "ber.example/c.mp3") +
                                 Item("d", "file:///etc/passwd") + Item("e", "javascript:alert(1)")));
    ASSERT_EQ(feed.episodes.size(), 3u);
    EXPECT_EQ(feed.episodes[0].enclosureUrl.toEncoded(),
              "https://example.org/shows/audio/caf%C3%A9%20du%20matin.mp3");
    EXPECT_EQ(feed.episodes[1].enclosureUrl.toEncoded(), "https://cdn.example.net/b.mp3?x=1&y=2");
    EXPECT_EQ(feed.episodes[2].enclosureUrl.toEncoded(), "https://xn--ber-goa.example/c.mp3");
    ASSERT_EQ(feed.warnings.size(), 1u);
    EXPECT_NE(feed.warnings[0].indexOf("2 item(s)"), -1) << feed.warnings[0].toStdString();
}

TEST(FeedParse, RepeatedGuidsKeepTheFirstAndSaySo)
{
    const Feed feed = Parsed(
        Rss(Item("same", "https://a.example/1.mp3") + Item("other", "https://a.example/2.mp3") +
            Item("same", "https://a.example/3.mp3") +
            "<item><enclosure url=\"https://a.example/2.mp3\"/></item>" +
            "<item><guid>https://a.example/2.mp3</guid><enclosure url=\"https://a.example/4.mp3\"/></item>"));
    ASSERT_EQ(feed.episodes.size(), 3u);
    EXPECT_EQ(feed.episodes[0].enclosureUrl, QUrl("https://a.example/1.mp3"));
    EXPECT_EQ(feed.episodes[2].guid,
              "https://a.example/2.mp3"); // the URL as a GUID, then a real GUID equal to it
    ASSERT_EQ(feed.warnings.size(), 1u);
    EXPECT_NE(feed.warnings[0].indexOf("2 item(s) repeat"), -1) << feed.warnings[0].toStdString();
}

// How fast is bench/feed_parse_bench's; here, that every item of a large feed is read.
TEST(FeedParse, TenThousandItems)
{
    QByteArray items;
    for (int i = 0; i < 10000; ++i)
        items += Item("guid-" + QByteArray::number(i), "https://a.example/" + QByteArray::number(i) + ".mp3",
                      "<pubDate>Sat, 1 Jan 2000 00:00:00 GMT</pubDate>");
    const Feed feed = Parsed(Rss(items + Item("guid-5000", "https://a.example/again.mp3")));
    ASSERT_EQ(feed.episodes.size(), 10000u);
    EXPECT_EQ(feed.episodes.back().guid, "guid-9999");
    EXPECT_EQ(feed.warnings.size(), 1u);
}

TEST(FeedParse, BadInputGetsAMessageNamingWhatItIs)
{
    EXPECT_EQ(FailureOf(""), "not a feed: the body is empty");
    EXPECT_EQ(
        FailureOf("<!DOCTYPE html><html><head><title>Moved</title></head><body><p>Gone<br></body></html>"),
        "not a feed: an HTML page");
    EXPECT_EQ(FailureOf(R"(<html xmlns="http://www.w3.org/1999/xhtml"><body/></html>)"),
              "not a feed: an HTML page");
    EXPECT_EQ(FailureOf("<svg xmlns=\"http://www.w3.org/2000/svg\"/>"),
              "not a feed: an XML document of type <svg>");
    const QString json = FailureOf(R"({"version": "https://jsonfeed.org/version/1"})");
    EXPECT_TRUE(json.startsWith("not XML: ")) << json.toStdString();
    EXPECT_NE(json.indexOf("begins \"{\"version\""), -1) << json.toStdString();
    // Cut off in the middle: not taken for a feed with fewer episodes.
    const QString cut = FailureOf(Rss(Item("a", "https://a.example/1.mp3")).chopped(30));
    EXPECT_TRUE(cut.startsWith("not XML: ")) << cut.toStdString();
    EXPECT_NE(cut.indexOf("line 1"), -1) << cut.toStdString();
    const QString mismatched = FailureOf("<rss><channel><item></channel></rss>");
    EXPECT_TRUE(mismatched.startsWith("not XML: ")) << mismatched.toStdString();
    // Binary garbage.
    EXPECT_TRUE(FailureOf(QByteArray("\x00\xFF\xFE<\x01rss", 8)).startsWith("not XML: "));
}

TEST(FeedParse, HtmlEntitiesInXmlAreReadNotFatal)
{
    const Feed feed =
        Parsed(Rss("<title>Caf&eacute; &Eacute;t&eacute; &nbsp;&mdash; &#8364;5 &#x263A;</title>" +
                   Item("a", "https://a.example/1.mp3")));
    EXPECT_EQ(feed.title, QString::fromUtf8("Caf\xC3\xA9 \xC3\x89t\xC3\xA9 \xE2\x80\x94 \xE2\x82\xAC"
                                            "5 \xE2\x98\xBA"));
}

TEST(PlainText, MarkupBecomesParagraphLines)
{
    EXPECT_EQ(PlainTextOf("<p>First <b>bold</b>\nline</p>\n\n<p>Second &amp; last</p>"),
              "First bold line\nSecond & last");
    EXPECT_EQ(
        PlainTextOf("<ul><li>one</li><li>two</li></ul><script>var x = '<p>';</script><!-- <p>hidden -->end"),
        "one\ntwo\nend");
    EXPECT_EQ(PlainTextOf("Plain text\n\n\nwith   paragraphs"), "Plain text\nwith paragraphs");
    EXPECT_EQ(PlainTextOf("5 &lt; 6 &amp;&amp; 7 > 3 &bogus; &#0; &#xD800;"),
              "5 < 6 && 7 > 3 &bogus; &#0; &#xD800;");
}

TEST(ChaptersJson, ChaptersOrderedWithPicturesAndHiddenOnesLeftOut)
{
    std::vector<FeedChapter> chapters;
    QString error;
    ASSERT_TRUE(ParseChaptersJson(R"({"version": "1.2.0", "chapters": [
        {"startTime": 65.5, "title": " Sport ", "img": "img/sport.png"},
        {"startTime": 0, "title": "Intro"},
        {"startTime": "30", "title": "News", "url": "https://example.org"},
        {"startTime": 30, "title": "Same start"},
        {"startTime": 40, "title": "Hidden", "toc": false},
        {"startTime": -1, "title": "Negative"},
        {"title": "No start"},
        {"startTime": 1e12, "title": "Beyond 32 bits"},
        "not an object"]})",
                                  kBase, chapters, error))
        << error.toStdString();
    ASSERT_EQ(chapters.size(), 3u);
    EXPECT_EQ(chapters[0].title, "Intro");
    EXPECT_EQ(chapters[1].startMs, 30000u);
    EXPECT_EQ(chapters[1].title, "News");
    EXPECT_EQ(chapters[2].startMs, 65500u);
    EXPECT_EQ(chapters[2].title, "Sport");
    EXPECT_EQ(chapters[2].imageUrl, QUrl("https://example.org/shows/daily/img/sport.png"));

    EXPECT_FALSE(ParseChaptersJson("<chapters/>", kBase, chapters, error));
    EXPECT_TRUE(error.startsWith("not JSON: ")) << error.toStdString();
    EXPECT_FALSE(ParseChaptersJson(R"({"version": "1.2.0"})", kBase, chapters, error));
    EXPECT_EQ(error, "not a chapters document: it has no \"chapters\" list");
    EXPECT_FALSE(ParseChaptersJson("[1, 2]", kBase, chapters, error));
    EXPECT_TRUE(chapters.empty());
}
