// `feldrun update` as a listener runs it: the real binary against feed_server.py
// on 127.0.0.1, episodes of speech made at test time and really packed, the
// Music folder and the settings store in a temporary device.
#include "FeedServer.h"
#include "SubscriptionStore.h"
#include "platform/Registry.h"
#include "tests/support/TestDevice.h"
#include "zqx/TalvoMetadata.h"

#include <QDirIterator>
#include <QProcess>
#include <gtest/gtest.h>

#include <map>
#include <set>

namespace feldrun::test {
namespace {

using talvo::test::TestDevice;

const QString kBooks = QStringLiteral(TALVO_BUILD_DIR "/book-fixtures/");

struct Item {
    QString title;
    int day = 1; // of November 2026
    QString enclosure;
    QString extra; // more elements of the item
};

QByteArray ReadAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

class FeldrunUpdate : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(server_.running());
        device_.UsePrivateRuntime();
        device_.set("FELDRUN_TIMEOUT_MS", QStringLiteral("1500"));
        device_.set("FELDRUN_RETRY_DELAY_MS", QStringLiteral("50"));
        registry_ = talvo::OpenSqliteRegistry(device_.registryPath().toStdString());
        ASSERT_TRUE(registry_);
        episode_ = ReadAll(kBooks + "book.mp3");
        ASSERT_FALSE(episode_.isEmpty()) << "no book fixtures";
        server_.put(QStringLiteral("/ep/book.mp3"), episode_);
        server_.put(QStringLiteral("/cover.png"), ReadAll(kBooks + "cover.png"));
    }

    // A feed at path whose enclosures are served by the test's server.
    void putFeed(const QString& path, const QString& title, const std::vector<Item>& items)
    {
        QString xml =
            "<?xml version=\"1.0\"?>\n<rss version=\"2.0\" xmlns:itunes=\"http://www.itunes.com/dtds/"
            "podcast-1.0.dtd\" xmlns:podcast=\"https://podcastindex.org/namespace/1.0\"><channel><title>" +
            title + "</title><itunes:author>Radio Garden</itunes:author><itunes:image href=\"" +
            server_.url("/cover.png").toString() + "\"/>";
        for (const Item& i : items)
            xml += QStringLiteral("<item><title>%1</title><guid>%1-guid</guid><pubDate>%2 Nov 2026 06:00:00 "
                                  "+0000</pubDate><description>About %1.</description><enclosure url=\"%3\" "
                                  "length=\"%4\" type=\"audio/mpeg\"/>%5</item>")
                       .arg(i.title)
                       .arg(i.day)
                       .arg(i.enclosure)
                       .arg(episode_.size())
                       .arg(i.extra);
        server_.put(path, (xml + "</channel></rss>").toUtf8());
    }

    void subscribe(const QString& path, std::uint32_t keep = 3)
    {
        Subscription s;
        s.url = server_.url(path);
        s.keep = keep;
        ASSERT_TRUE(SubscriptionStore(*registry_).Save(s));
    }

    std::optional<Subscription> subscription(const QString& urlOrTitle)
    {
        return SubscriptionStore(*registry_).Find(urlOrTitle);
    }

    int update(const QStringList& args = {}) { return feldrun(QStringList{"update"} + args); }

    int feldrun(const QStringList& args)
    {
        QProcess feldrun;
        feldrun.start(QStringLiteral(TALVO_BUILD_DIR "/bin/feldrun"), args);
        feldrun.waitForFinished(180000);
        output_ = QString::fromUtf8(feldrun.readAllStandardOutput());
        errors_ = QString::fromUtf8(feldrun.readAllStandardError());
        return feldrun.exitStatus() == QProcess::NormalExit ? feldrun.exitCode() : -1;
    }

    // Every file and folder under Music, relative to it.
    std::set<QString> music() const
    {
        std::set<QString> names;
        QDirIterator it(device_.path("music"), QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                        QDirIterator::Subdirectories);
        while (it.hasNext())
            names.insert(it.next().mid(device_.path("music").size() + 1));
        return names;
    }

    FeedServer server_;
    TestDevice device_;
    std::unique_ptr<talvo::Registry> registry_;
    QByteArray episode_;
    QString output_, errors_;
};

std::vector<std::u16string> SectionTitles(const CTalvoMetadata& meta)
{
    std::vector<std::u16string> titles;
    for (int i = 0; i < meta.GetSectionCount(); ++i)
        titles.push_back(meta.GetSectionTitle(i));
    return titles;
}

TEST_F(FeldrunUpdate, TheNewestComeInAsProgramsAnUnchangedFeedCostsOneRequestAndTheOldestGo)
{
    const QString chapters = server_.url("/ep/chapters.json").toString();
    server_.put(
        QStringLiteral("/ep/chapters.json"),
        R"({"version":"1.2.0","chapters":[{"startTime":0,"title":"News"},{"startTime":3.5,"title":"Weather"}]})");
    std::vector<Item> items;
    for (int day = 1; day <= 4; ++day)
        items.push_back(
            {QStringLiteral("Day %1").arg(day), day, server_.url("/ep/book.mp3").toString(),
             day == 4 ? "<podcast:chapters url=\"" + chapters + "\" type=\"application/json+chapters\"/>"
                      : QString()});
    putFeed(QStringLiteral("/morning.xml"), QStringLiteral("Morning Garden"), items);

    // Subscribing brings the newest in at once; not on a terminal, nothing but the subscription is told.
    const QString url = server_.url("/morning.xml").toString();
    ASSERT_EQ(feldrun({"subscribe", url}), 0) << errors_.toStdString();
    EXPECT_EQ(output_, "subscribed to " + url + "\n");
    const QString newest = "Morning Garden/2026-11-04 Day 4/2026-11-04 Day 4.zqx";
    const QString oldestKept = "Morning Garden/2026-11-02 Day 2/2026-11-02 Day 2.zqx";
    EXPECT_EQ(music(), (std::set<QString>{"Morning Garden", "Morning Garden/2026-11-04 Day 4", newest,
                                          "Morning Garden/2026-11-03 Day 3",
                                          "Morning Garden/2026-11-03 Day 3/2026-11-03 Day 3.zqx",
                                          "Morning Garden/2026-11-02 Day 2", oldestKept}));
    CTalvoMetadata meta;
    ASSERT_EQ(meta.OpenZQXFile(device_.path("music/" + newest).toStdU16String()), ZQX_OK);
    EXPECT_EQ(meta.GetTitle(), u"Day 4");
    EXPECT_EQ(meta.GetAuthor(), u"Radio Garden");
    EXPECT_EQ(meta.GetDescription(), u"4 November 2026\nAbout Day 4.");
    EXPECT_EQ(SectionTitles(meta),
              (std::vector<std::u16string>{u"News", u"Weather"})); // the feed's, not the file's
    EXPECT_EQ(meta.GetPictureCount(), 1);
    CTalvoMetadata older;
    ASSERT_EQ(older.OpenZQXFile(device_.path("music/" + oldestKept).toStdU16String()), ZQX_OK);
    EXPECT_EQ(SectionTitles(older), (std::vector<std::u16string>{u"Opening", u"Middle", u"Ending"}));
    EXPECT_NE(older.GetProgramId(), meta.GetProgramId());

    auto stored = subscription(QStringLiteral("Morning Garden"));
    ASSERT_TRUE(stored);
    ASSERT_EQ(stored->episodes.size(), 4u);
    EXPECT_EQ(stored->episodes[0].state, EpisodeState::Ready);
    EXPECT_EQ(stored->episodes[0].programPath, device_.path("music/" + newest));
    EXPECT_EQ(stored->episodes[3].state, EpisodeState::New);
    EXPECT_FALSE(stored->etag.isEmpty());

    // Nothing changed: one conditional request, answered 304, and nothing else asked for.
    const int before = server_.requests().size();
    ASSERT_EQ(update(), 0) << errors_.toStdString();
    const QStringList since = server_.requests().mid(before);
    ASSERT_EQ(since.size(), 1) << since.join('\n').toStdString();
    EXPECT_TRUE(since[0].contains("/morning.xml") && since[0].contains("status=304"))
        << since[0].toStdString();

    // A fifth day: it comes in, and the oldest of the three on the device goes.
    items.push_back({QStringLiteral("Day 5"), 5, server_.url("/ep/book.mp3").toString(), {}});
    putFeed(QStringLiteral("/morning.xml"), QStringLiteral("Morning Garden"), items);
    ASSERT_EQ(update(), 0) << errors_.toStdString();
    EXPECT_TRUE(music().count("Morning Garden/2026-11-05 Day 5/2026-11-05 Day 5.zqx"));
    EXPECT_FALSE(music().count("Morning Garden/2026-11-02 Day 2")) << "the pruned episode's folder is left";
    EXPECT_EQ(music().size(), 7u);
    stored = subscription(QStringLiteral("Morning Garden"));
    ASSERT_EQ(stored->episodes.size(), 5u);
    EXPECT_EQ(stored->episodes[3].title, "Day 2");
    EXPECT_EQ(stored->episodes[3].state, EpisodeState::New);
    EXPECT_TRUE(stored->episodes[3].programPath.isEmpty());
}

TEST_F(FeldrunUpdate, EachFaultIsToldAndTheOtherEpisodesAndSubscriptionsComeIn)
{
    const auto at = [&](const char* path) {
        return server_.url(path).toString();
    };
    putFeed(QStringLiteral("/faults.xml"), QStringLiteral("Faults"),
            {{"Missing", 6, at("/404/ep/book.mp3"), {}},
             {"Broken", 5, at("/500/ep/book.mp3"), {}},
             {"Dropped", 4, at("/drop/ep/book.mp3"), {}},
             {"Stalled", 3, at("/stall/ep/book.mp3"), {}},
             {"Too long", 2, at("/long/ep/book.mp3"), {}},
             {"Not audio", 1, at("/cover.png"), {}},
             // Relative, with a blank and a non-ASCII letter: resolved against the feed and encoded.
             {"Bücher", 7, "ep/bücher folge.mp3", {}},
             // The GUID of an earlier item again: the first one stands, this one is never fetched.
             {"Dropped", 8, at("/404/again.mp3"), {}}});
    server_.put(QStringLiteral("/ep/bücher folge.mp3"), episode_);
    subscribe(QStringLiteral("/faults.xml"), 7);
    // A feed of 10,000 items: the newest comes in, and the store keeps a hundred records, not 10,000.
    std::vector<Item> many;
    for (int i = 0; i < 10000; ++i)
        many.push_back({QStringLiteral("Item %1").arg(i), 1 + i % 28, at("/ep/book.mp3"), {}});
    putFeed(QStringLiteral("/many.xml"), QStringLiteral("Many"), many);
    subscribe(QStringLiteral("/many.xml"), 1);
    server_.put(QStringLiteral("/page.html"), "<!DOCTYPE html><html><body>Moved to our app!</body></html>");
    subscribe(QStringLiteral("/page.html"));
    subscribe(QStringLiteral("/loop/a"));
    subscribe(QStringLiteral("/gone.xml"));
    putFeed(QStringLiteral("/new-home.xml"), QStringLiteral("Moved Programme"),
            {{"Only", 1, at("/temp/ep/book.mp3"), {}}});
    subscribe(QStringLiteral("/moved/new-home.xml"));

    ASSERT_EQ(update(), 1);
    const QStringList told = errors_.split('\n', Qt::SkipEmptyParts);
    for (const QString& expected :
         {"127.0.0.1 answered 404 Not Found for " + at("/404/ep/book.mp3"),
          "127.0.0.1 answered 500 Internal Server Error for " + at("/500/ep/book.mp3"),
          at("/cover.png") + ": ", "redirect loop: " + at("/loop/a"), at("/page.html") + ": ",
          "127.0.0.1 answered 404 Not Found for " + at("/gone.xml"),
          QStringLiteral("Faults: 1 item(s) repeat the GUID of an earlier item")})
        EXPECT_EQ(told.filter(expected).size(), 1) << expected.toStdString() << " in\n"
                                                   << errors_.toStdString();
    EXPECT_EQ(told.size(), 7) << errors_.toStdString();

    const auto faults = subscription(QStringLiteral("Faults"));
    ASSERT_TRUE(faults);
    std::map<QString, EpisodeState> states;
    for (const EpisodeRecord& r : faults->episodes)
        states[r.title] = r.state;
    EXPECT_EQ(states, (std::map<QString, EpisodeState>{{"Missing", EpisodeState::Failed},
                                                       {"Broken", EpisodeState::Failed},
                                                       {"Dropped", EpisodeState::Ready},
                                                       {"Stalled", EpisodeState::Ready},
                                                       {"Too long", EpisodeState::Ready},
                                                       {"Not audio", EpisodeState::Failed},
                                                       {"Bücher", EpisodeState::Ready}}));
    EXPECT_FALSE(faults->episodes[1].error.isEmpty());
    const auto manyStored = subscription(QStringLiteral("Many"));
    ASSERT_TRUE(manyStored);
    EXPECT_EQ(manyStored->episodes.size(), 100u);
    EXPECT_EQ(manyStored->episodes[0].state, EpisodeState::Ready);
    EXPECT_EQ(manyStored->episodes[0].title, "Item 27");
    // A permanent redirect is remembered; the temporary one of its episode is not kept anywhere.
    EXPECT_FALSE(subscription(server_.url("/moved/new-home.xml").toString()));
    const auto moved = subscription(server_.url("/new-home.xml").toString());
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->episodes.at(0).state, EpisodeState::Ready);

    // Resumed downloads made whole programs; nothing half-written anywhere.
    for (const char* name : {"Faults/2026-11-04 Dropped/2026-11-04 Dropped.zqx",
                             "Faults/2026-11-03 Stalled/2026-11-03 Stalled.zqx",
                             "Faults/2026-11-02 Too long/2026-11-02 Too long.zqx"}) {
        CTalvoMetadata meta;
        ASSERT_EQ(meta.OpenZQXFile(device_.path(QStringLiteral("music/") + name).toStdU16String()), ZQX_OK)
            << name;
        EXPECT_NEAR(double(meta.GetLengthMs()), 6000, 100) << name;
    }
    EXPECT_TRUE(music().count("Faults/2026-11-07 Bücher/2026-11-07 Bücher.zqx"));
    EXPECT_EQ(music().size(), 15u)
        << "four episodes, the moved programme's and the newest of 10,000, each in "
           "two folders";
    EXPECT_TRUE(QDir(device_.path("cache/talvoplayer/feldrun")).entryList(QDir::Files).isEmpty());
}

// The Music folder alone on a small file system, in a mount namespace of its
// own (unshare: no privilege needed where user namespaces are allowed), filled
// but for a few KiB, so packing starts and then finds the disk full.  What the
// file system holds afterwards is copied out for the test to read.
constexpr char kSmallMusicScript[] = R"sh(
music="$1"; seed="$2"; out="$3"; shift 3
cp -a "$music"/. "$seed"/ && mount -t tmpfs -o size=512k tmpfs "$music" && cp -a "$seed"/. "$music"/ || exit 99
dd if=/dev/zero of="$music/filler" bs=4k 2>/dev/null
truncate -s -8K "$music/filler" || exit 99
"$@"
status=$?
cp -a "$music"/. "$out"/
exit $status
)sh";

TEST_F(FeldrunUpdate, AFullDiskDuringPackingLeavesTheMusicFolderAsItWas)
{
    if (QProcess::execute(QStringLiteral("unshare"), {QStringLiteral("-rm"), QStringLiteral("true")}) != 0)
        GTEST_SKIP() << "no user and mount namespaces here (unshare -rm)";
    const QByteArray old(20000, 'o');
    QDir().mkpath(device_.path("music/Older/Book"));
    QFile program(device_.path("music/Older/Book/Book.zqx"));
    ASSERT_TRUE(program.open(QIODevice::WriteOnly) && program.write(old) == old.size());
    program.close();
    putFeed(QStringLiteral("/full.xml"), QStringLiteral("Full Disk"),
            {{"Too big", 1, server_.url("/ep/book.mp3").toString(), {}}});
    subscribe(QStringLiteral("/full.xml"));
    for (const char* folder : {"seed", "after"})
        QDir().mkpath(device_.path(folder));

    QProcess wrapper;
    wrapper.start(QStringLiteral("unshare"),
                  {QStringLiteral("-rm"), QStringLiteral("sh"), QStringLiteral("-c"),
                   QString::fromLatin1(kSmallMusicScript), QStringLiteral("sh"), device_.path("music"),
                   device_.path("seed"), device_.path("after"),
                   QStringLiteral(TALVO_BUILD_DIR "/bin/feldrun"), QStringLiteral("update")});
    ASSERT_TRUE(wrapper.waitForFinished(120000));
    const QString errors = QString::fromUtf8(wrapper.readAllStandardError());
    EXPECT_EQ(wrapper.exitCode(), 1) << errors.toStdString();
    EXPECT_TRUE(errors.contains(QStringLiteral("No space left on device"))) << errors.toStdString();

    // The earlier program whole, the filler, and nothing else: no folder, no temporary file.
    std::set<QString> after;
    QDirIterator it(device_.path("after"), QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        after.insert(it.next().mid(device_.path("after").size() + 1));
    EXPECT_EQ(after, (std::set<QString>{"Older", "Older/Book", "Older/Book/Book.zqx", "filler"}));
    EXPECT_EQ(ReadAll(device_.path("after/Older/Book/Book.zqx")), old);
    const auto stored = subscription(QStringLiteral("Full Disk"));
    ASSERT_TRUE(stored && !stored->episodes.empty());
    EXPECT_EQ(stored->episodes[0].state, EpisodeState::Failed);
}

} // namespace
} // namespace feldrun::test
